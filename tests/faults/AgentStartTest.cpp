// An agent with its real modules that has much to do: it says so, and stops all the same when it is told to.

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "BuildPaths.h"
#include "support/AgentProcess.h"
#include "support/LogReader.h"
#include "support/NotifySocket.h"
#include "support/WaitFor.h"
#include "support/shim/FaultPlan.h"

namespace {

namespace fs = std::filesystem;

/// A plan that an agent maps which is started while this lives, with the library preloaded.
class PreloadedPlan {
public:
    explicit PreloadedPlan(const std::string& path) {
        const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_EQ(ftruncate(file, sizeof(FaultPlan)), 0);
        void* const place = mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        EXPECT_NE(place, MAP_FAILED);
        close(file);
        plan_ = static_cast<FaultPlan*>(place);
        setenv("LD_PRELOAD", LUM_BINARY_DIR "/lib/libfaultshim.so", 1);
        setenv("LUM_FAULT_PLAN", path.c_str(), 1);
    }
    PreloadedPlan(const PreloadedPlan&) = delete;
    PreloadedPlan& operator=(const PreloadedPlan&) = delete;
    ~PreloadedPlan() {
        unsetenv("LD_PRELOAD");
        unsetenv("LUM_FAULT_PLAN");
        munmap(plan_, sizeof(FaultPlan));
    }

    FaultPlan* operator->() const { return plan_; }

private:
    FaultPlan* plan_;
};

class AgentStart : public testing::Test {
protected:
    AgentStart() {
        agent_.WriteShippedSettings();
        agent_.Drop({.name = "Logon", .params = {{.name = "User"}}});
    }
    [[nodiscard]] std::string Health() const { return agent_.Request("GET", "/health").body; }
    /// Events of about 4 KB each, so that each takes a page of its own.
    void FillDatabase(int events) const {
        agent_.Database().Run(
            "PRAGMA journal_mode = WAL; WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE "
            "i < " +
            std::to_string(events) +
            ") INSERT INTO Event_Logon (E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_User) SELECT i, 0, 0, "
            "0, printf('%.4000c', 'x') FROM n; PRAGMA wal_checkpoint(TRUNCATE)");
    }

    AgentProcess agent_;
};

TEST_F(AgentStart, SaysHowFarItIsAndEndsWithinSecondsWhenItIsToldTo) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's library has to be the first of the process";
#endif
    constexpr int kEvents = 20000;
    ASSERT_TRUE(agent_.StartAndServe());
    ASSERT_EQ(agent_.Stop(), 0);
    FillDatabase(kEvents);
    NotifySocket manager(agent_.GetScratch() / "notify");
    agent_.environment = "NOTIFY_SOCKET=" + agent_.GetScratch() / "notify";
    {
        const PreloadedPlan plan(agent_.GetScratch() / "plan");
        plan->Watch(agent_.GetDataDirectory());
        plan->delayMs = 2;
        plan->Arm(FaultPlan::Kind::kSlow, 1, FaultPlan::kForEver);
        agent_.Start();
        EXPECT_TRUE(manager.WaitFor("EXTEND_TIMEOUT_USEC=60000000\nSTATUS=checking the database, "));
        EXPECT_TRUE(agent_.WaitForLog(" print Agent Still at work: checking the database, "));
        const uint64_t before = plan->count;
        EXPECT_LT(before, static_cast<uint64_t>(kEvents)) << "it says so while it is at it";
        EXPECT_EQ(agent_.Stop(), 0);
        EXPECT_LT(plan->count - before, 1000U) << "of the reads that are left, a few are made";
    }
    EXPECT_EQ(agent_.ReadLog().find("compacting"), std::string::npos);
    agent_.environment.clear();
    ASSERT_TRUE(agent_.StartAndServe());
    EXPECT_EQ(agent_.Database().Rows("SELECT count(*) FROM Event_Logon"), std::to_string(kEvents));
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(AgentStart, StopsInTheMiddleOfALongList) {
    constexpr std::size_t kNames = 500000;
    agent_.arguments = {"--log-level", "warning"};
    ASSERT_TRUE(agent_.StartAndServe());
    std::string names = "\"Nobody\"";
    for (std::size_t i = 1; i < kNames; ++i) {
        names += ",\"Nobody\"";
    }
    HttpClient client(agent_.GetSocketPath());
    ASSERT_TRUE(client.SendRequest("POST", "/actions/EventLogManagerDeleteModels",
                                   R"({"Values":{"ModelName":[)" + names + "]}}"));
    ASSERT_TRUE(agent_.WaitForLog("Failed to get model 'Nobody'"));
    EXPECT_EQ(agent_.Stop(), 0);
    EXPECT_EQ(CountIn(agent_.ReadLog(), "The agent stops: model 'Nobody' and those named after it are not"),
              1U);
}

TEST_F(AgentStart, SaysWhatAnEarlierRunLeftInTheOutbox) {
    const TempDirectory& scratch = agent_.GetScratch();
    scratch.Write("data/FileStore/outbox/20261121T011025Z-7-Events.cbor", "without a description");
    scratch.Write("data/FileStore/outbox/other.cbor", "with a name that says nothing");
    scratch.Write("data/FileStore/outbox/20261121T011025Z-8-Events.json",
                  R"({"FileName":"20261121T011025Z-8-Events.cbor"})");
    ASSERT_TRUE(agent_.StartAndServe());
    for (const char* const line :
         {"Files without a description in the outbox: 1, the first is '20261121T011025Z-7-Events.cbor'; they "
          "were given one from their names",
          "Files without a description in the outbox: 1, the first is 'other.cbor'; they were left as they "
          "are",
          "Descriptions without their file in the outbox: 1, the first is '20261121T011025Z-8-Events.json'; "
          "they were removed"}) {
        EXPECT_EQ(
            CountIn(agent_.ReadLog(), " warning FileStore StoreInitialise: " + std::string(line) + "\n"), 1U)
            << agent_.ReadLog();
    }
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(AgentStart, IsWellAgainWithoutARestartOnceFilesCanBeHandedOver) {
    ASSERT_TRUE(agent_.StartAndServe());
    const std::string outbox = agent_.GetDataDirectory() + "/FileStore/outbox";
    fs::rename(outbox, outbox + ".away");
    std::ofstream(outbox) << "in the way";
    const std::string file = agent_.GetDataDirectory() + "/tmp/mine";
    std::ofstream(file) << "content";
    EXPECT_EQ(agent_
                  .Request("POST", "/actions/FileStoreReceiveFile",
                           R"({"FileType":"t","FileLabel":"t","MovePath":")" + file + "\"}")
                  .body,
              R"({"status":1,"container":{"FileType":"t","FileLabel":"t","MovePath":")" + file + "\"}}");
    EXPECT_EQ(agent_.Request("GET", "/health").status, 503);
    EXPECT_EQ(Health(), R"({"status":"degraded","reasons":["The outbox cannot take files: )" + outbox +
                            R"(: it cannot be made: Not a directory."]})");
    fs::remove(outbox);
    EXPECT_EQ(Health(), R"({"status":"ok"})");
    EXPECT_EQ(agent_.Stop(), 0);
}

}  // namespace
