#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/core/LumHealth.h"

namespace {

std::vector<std::string> Reasons() {
    std::vector<std::string> reasons;
    for (const LumString& reason : LumHealthReasons()) {
        reasons.emplace_back(reason.View());
    }
    return reasons;
}

TEST(LumHealth, KeepsOneReasonASourceUntilItIsTakenBack) {
    EXPECT_TRUE(LumHealthReasons().empty());
    LumHealthReport("database", "");
    EXPECT_TRUE(LumHealthReasons().empty());
    LumHealthReport("database", "The disk is full.");
    LumHealthReport("outbox", "The outbox cannot be written.");
    LumHealthReport("database", "The disk is gone.");
    EXPECT_THAT(Reasons(), testing::ElementsAre("The disk is gone.", "The outbox cannot be written."));
    LumHealthReport("database", "");
    EXPECT_THAT(Reasons(), testing::ElementsAre("The outbox cannot be written."));
    LumHealthReport("outbox", "");
    EXPECT_TRUE(LumHealthReasons().empty());
}

TEST(LumHealth, AsksItsChecks) {
    LumString reason = "The outbox is gone.";
    {
        const LumHealthCheck check([&reason] { return reason; });
        EXPECT_THAT(Reasons(), testing::ElementsAre("The outbox is gone."));
        reason = "";
        EXPECT_TRUE(LumHealthReasons().empty());
        reason = "Again.";
    }
    EXPECT_TRUE(LumHealthReasons().empty()) << "nobody is asked any more";
}

TEST(LumHealth, TakesReportsOfManyThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            const LumString source{std::string_view(std::to_string(i))};
            for (int round = 0; round < 500; ++round) {
                LumHealthReport(source, round % 2 == 0 ? "Bad." : "");
                static_cast<void>(LumHealthReasons());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(LumHealthReasons().empty());
}

}  // namespace
