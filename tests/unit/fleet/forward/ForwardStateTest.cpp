#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "fleet/forward/ForwardState.h"

namespace {

TEST(ForwardState, IsWellOnceItCanSend) {
    ForwardState state;
    EXPECT_EQ(ForwardHealth(state).reasons, std::vector<std::string>{"The broker cannot be reached"});
    state.connected = true;
    EXPECT_TRUE(ForwardHealth(state).reasons.empty());
    state.brokerTakes = false;
    state.outboxReadable = false;
    EXPECT_EQ(ForwardHealth(state).reasons,
              (std::vector<std::string>{"The broker refuses batches", "The outbox cannot be read"}));
}

TEST(ForwardState, IsWrittenForOthersAsJson) {
    ForwardState state;
    state.connected = true;
    state.waiting = 3;
    state.waitingBytes = 4'096;
    state.oldest = 1'000;
    state.unconfirmed = 2;
    state.confirmed = 7;
    state.setAside = 1;
    state.lastReceipt = 2'000;
    const auto json = nlohmann::json::parse(ForwardStateJson(state, "alpha", "what \xff went wrong", 3'000));
    EXPECT_EQ(json, nlohmann::json::parse(R"({"Device":"alpha","Connected":true,"Entries":3,"Bytes":4096,
        "Oldest":1000,"Unconfirmed":2,"Confirmed":7,"SetAside":1,"LastReceipt":2000,
        "LastError":"what � went wrong","UpdatedAt":3000})"));
}

TEST(ForwardState, IsShownAsMetrics) {
    ForwardState state;
    state.published = 12;
    state.oldest = 1'795'000'000;
    const std::string text = ForwardMetrics(state);
    EXPECT_NE(text.find("# TYPE lumforward_published_total counter\nlumforward_published_total 12\n"),
              std::string::npos);
    EXPECT_NE(text.find("lumforward_outbox_oldest_seconds 1795000000\n"), std::string::npos);
    EXPECT_NE(text.find("# TYPE lumforward_connected gauge\nlumforward_connected 0\n"), std::string::npos);
}

}  // namespace
