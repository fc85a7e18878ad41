#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "agent/request/BatchCall.h"
#include "host/core/ActionDb.h"
#include "host/core/ActionFrame.h"
#include "host/database/DatabaseFigures.h"
#include "support/FaultVfs.h"
#include "support/LogReader.h"
#include "support/TestDatabase.h"

namespace {

uint32_t Count(LumContainer* container) {
    static int32_t calls = 0;
    container->Clear();
    container->SetInt32("Call", ++calls);
    return 0;
}

uint32_t Fill(LumContainer* container) {
    container->SetString("Text", LumString(std::string(100'000, 'x')));
    return 0;
}

TestDatabase* database = nullptr;

uint32_t Insert(LumContainer* container) {
    return ActionWithValues(container, [](const LumContainer&, LumContainer&) -> uint32_t {
        return database->Run("INSERT INTO t (a) VALUES (1)") ? kActionDone : kActionFailed;
    });
}

class BatchCallTest : public testing::Test {
protected:
    BatchCallTest() {
        ActionDbRegisterAction("Count ()", Count, &handle_);
        ActionDbRegisterAction("Fill ()", Fill, &handle_);
        ActionDbRegisterAction("Insert ()", Insert, &handle_);
    }
    ~BatchCallTest() override { ActionDbUnregisterModule(&handle_); }

    [[nodiscard]] std::unique_ptr<BatchCall> Open(const char* action = "Count") {
        return std::make_unique<BatchCall>(std::make_unique<ActionCall>(action, client_, debug_));
    }
    /// All answers to what is there.
    [[nodiscard]] static std::string Work(BatchCall& batch) {
        std::string answers;
        while (batch.Work(answers)) {
            answers += "|";
        }
        return answers;
    }

    HostLogLines log_;
    LumDebug debug_{"Agent", "test"};
    LumAgentHandle handle_{"Tester"};
    Client client_{true, 0, {0}};
};

TEST_F(BatchCallTest, CallsOnceForEachLineInOrder) {
    const auto batch = Open();
    batch->Take("{}\n{}\r\n\n{", false);
    const std::string first = Work(*batch);
    EXPECT_EQ(CountIn(first, "\n"), 2U);
    EXPECT_EQ(first.find(R"({"line":1,"status":0,"container":{"Call":)"), 0U) << first;
    EXPECT_NE(first.find(R"({"line":2,"status":0,)"), std::string::npos);
    batch->Take("}", false);
    EXPECT_EQ(Work(*batch), "") << "the line may go on";
    batch->Take("", true);
    EXPECT_EQ(Work(*batch).find(R"({"line":4,"status":0,)"), 0U) << "the last line needs no end";
}

TEST_F(BatchCallTest, SaysWhichLineIsNoContainer) {
    const auto batch = Open();
    batch->Take("[1]\n{}\n", true);
    const std::string answers = Work(*batch);
    EXPECT_EQ(answers.find(R"({"line":1,"error":"The line is not a container: )"), 0U) << answers;
    EXPECT_NE(answers.find("\n{\"line\":2,\"status\":0,"), std::string::npos);
}

TEST_F(BatchCallTest, ExplainsWhereThatIsAskedFor) {
    BatchCall batch(std::make_unique<ActionCall>("Count", client_, debug_), true);
    batch.Take("{}\n", true);
    const std::string answers = Work(batch);
    EXPECT_NE(answers.find(R"(,"messages":[]})"), std::string::npos) << answers;
}

TEST_F(BatchCallTest, SaysThatTheActionHasGone) {
    const auto batch = Open("Nobody");
    batch->Take("{}\n", true);
    EXPECT_EQ(Work(*batch), "{\"line\":1,\"error\":\"The action is not there any more.\"}\n");
}

TEST_F(BatchCallTest, PausesWhenTheAnswersAreLong) {
    const auto batch = Open("Fill");
    batch->Take("{}\n{}\n{}\n{}\n", true);
    const std::string answers = Work(*batch);
    EXPECT_EQ(CountIn(answers, "\n"), 4U);
    EXPECT_EQ(CountIn(answers, "|"), 1U);
}

/// A database of its own whose syncs a test can count and break.
class BatchCallDurability : public BatchCallTest {
protected:
    BatchCallDurability() {
        database = &database_;
        EXPECT_TRUE(database_.Run("CREATE TABLE t (a)") && DBAwaitDurable());
    }

    /// The answers to a batch of 100 insertions.
    [[nodiscard]] std::string InsertHundred() {
        const auto batch = Open("Insert");
        for (int i = 0; i < 100; ++i) {
            batch->Take("{\"Values\":{}}\n", i == 99);
        }
        return Work(*batch);
    }

    FaultVfs faults_;
    TestDatabase database_;
};

TEST_F(BatchCallDurability, IsReachedForAWindowByOneSync) {
    const DBFigures before = DBReadFigures();
    EXPECT_EQ(CountIn(InsertHundred(), R"("status":0)"), 100U);
    const DBFigures after = DBReadFigures();
    EXPECT_EQ(after.syncs - before.syncs, 1U);
    EXPECT_EQ(after.syncedChanges - before.syncedChanges, 100U);
    EXPECT_GE(after.statements - before.statements, 100U);
    EXPECT_EQ(database_.Rows("SELECT count(*) FROM t"), "100");
}

TEST_F(BatchCallDurability, IsNotClaimedWhereTheSyncFails) {
    faults_.FailCallsFrom(FaultVfs::Call::kSync, 1, SQLITE_IOERR_FSYNC);
    const std::string answers = InsertHundred();
    faults_.Reset();
    EXPECT_EQ(CountIn(answers, R"("status":1,"container":{"Values":{}}})"), 100U) << answers;
    EXPECT_EQ(CountIn(InsertHundred(), R"("status":0)"), 100U) << "the next window is not to blame";
}

TEST_F(BatchCallTest, PassesOverALineThatIsTooLong) {
    const auto batch = Open();
    const std::string part(1U << 20U, 'x');
    std::string answers;
    for (int i = 0; i < 20; ++i) {
        batch->Take(part, false);
        answers += Work(*batch);
        EXPECT_LE(batch->GetHeld(), 40U << 20U);
    }
    EXPECT_EQ(answers, "{\"line\":1,\"error\":\"The line is longer than 16777216 bytes.\"}\n");
    batch->Take("xxx\n{}\n", true);
    EXPECT_EQ(Work(*batch).find(R"({"line":2,"status":0,)"), 0U);
}

TEST_F(BatchCallTest, PassesOverALineThatIsTooLongAndComesAtOnce) {
    const auto batch = Open();
    batch->Take(std::string(17U << 20U, 'x') + "\n{}\n", true);
    const std::string answers = Work(*batch);
    EXPECT_EQ(answers.find("{\"line\":1,\"error\":\"The line is longer than 16777216 bytes.\"}\n"
                           R"({"line":2,"status":0,)"),
              0U)
        << answers;
}

}  // namespace
