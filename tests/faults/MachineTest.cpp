// MachineEvents in a real agent: what it reads is missing, broken or too much.

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/AgentProcess.h"
#include "support/JournalFile.h"
#include "support/WaitFor.h"

namespace {

class MachineTest : public testing::Test {
protected:
    void SetUp() override {
        agent_.WriteShippedSettings();
        std::ofstream(agent_.GetConfigDirectory() + "/agent.ini", std::ios::app)
            << "MachineEvents = MachineEvents.so\n";
        agent_.GetScratch().MakeDirectory("journal");
    }
    /// A journal and a package log of the test's own; `further` are sections.
    void WriteSettings(const std::string& further) const {
        const TempDirectory& scratch = agent_.GetScratch();
        scratch.Write("config/MachineEvents.ini",
                      "[MachineEvents]\nBackfillDays = 36500\nRetrySeconds = 1\n[Journal]\nDirectory = " +
                          scratch / "journal" + "\n" + further);
    }
    /// Failed logons, each of a user of its own, as a journal of the given name.
    void WriteLogons(int count, const std::string& name = "journal/a.journal") {
        JournalFile journal;
        for (int i = 0; i < count; ++i) {
            journal.Add(1'780'000'000 + i / 1000,
                        {{"_UID", "0"},
                         {"_COMM", "sshd"},
                         {"MESSAGE",
                          "Failed password for user" + std::to_string(i) + " from 192.0.2.8 port 5 ssh2"}});
        }
        ASSERT_TRUE(journal.Write(agent_.GetScratch() / name));
    }
    [[nodiscard]] std::string Value(const std::string& sql) const {
        try {
            return agent_.Database().Rows(sql);
        } catch (const std::runtime_error&) {
            return {};  // there is no such table yet
        }
    }
    [[nodiscard]] int Count(const std::string& model) const {
        return std::atoi(Value("SELECT count(*) FROM Event_" + model).c_str());
    }
    [[nodiscard]] bool WaitForCount(const std::string& model, int count) const {
        return WaitFor([&] { return Count(model) >= count; }, std::chrono::seconds(90));
    }
    /// How many warnings the log has about `source`.
    [[nodiscard]] std::size_t CountWarnings(const std::string& source) const {
        return CountIn(agent_.ReadLog(), "warning MachineEvents " + source + ": ");
    }

    /// How many programs read the test's journal.
    [[nodiscard]] int CountReaders() const {
        int count = 0;
        for (const auto& process : std::filesystem::directory_iterator("/proc")) {
            const std::string words = ReadWholeFile(process.path() / "cmdline");
            count += words.find("lumjournal") != std::string::npos &&
                             words.find(agent_.GetScratch() / "journal") != std::string::npos
                         ? 1
                         : 0;
        }
        return count;
    }

    static constexpr const char* kOnlySessions =
        "[Packages]\nEnabled = 0\n[Machine]\nEnabled = 0\n[Services]\nEnabled = 0\n[Disks]\nEnabled = 0\n"
        "[Load]\nEnabled = 0\n[Devices]\nEnabled = 0\n";

    AgentProcess agent_;
};

TEST_F(MachineTest, WithoutJournalUdevAndLogEachSourceWarnsOnce) {
    WriteSettings("[Packages]\nLog = " + agent_.GetScratch() / "nowhere/dpkg.log" +
                  "\n[Load]\nIntervalSeconds = 1\n[Disks]\nIntervalSeconds = 1\n");
    ASSERT_TRUE(agent_.StartAndServe());
    // Meanwhile every source is looked for again, some times.
    ASSERT_TRUE(WaitForCount("MachineLoad", 4)) << agent_.ReadLog();
    for (const char* const source : {"Packages", "Sessions", "Machine", "Services"}) {
        EXPECT_EQ(CountWarnings(source), 1U) << source;
    }
    EXPECT_EQ(CountWarnings("Devices"), access("/run/udev/control", F_OK) == 0 ? 0U : 1U);
    EXPECT_EQ(agent_.Request("GET", "/health").status, 200);
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(MachineTest, AJournalThatIsCutWhileItIsReadDoesNotEndTheAgent) {
    constexpr int kLogons = 20'000;
    WriteSettings(kOnlySessions);
    WriteLogons(kLogons, "whole.journal");
    const std::string whole = agent_.GetScratch() / "whole.journal";
    const std::string path = agent_.GetScratch() / "journal/a.journal";
    std::filesystem::copy(whole, path);
    ASSERT_TRUE(agent_.StartAndServe());
    ASSERT_TRUE(WaitForCount("Logon", 1)) << agent_.ReadLog();
    std::filesystem::resize_file(path, 8192);
    ASSERT_TRUE(WaitFor([&] { return CountWarnings("Sessions") == 1; })) << agent_.ReadLog();
    EXPECT_LT(Count("Logon"), kLogons);
    std::filesystem::copy(whole, path, std::filesystem::copy_options::overwrite_existing);
    EXPECT_TRUE(WaitForCount("Logon", kLogons)) << agent_.ReadLog();
    EXPECT_EQ(Value("SELECT count(DISTINCT C_User), count(*) FROM Event_Logon"), "20000|20000");
    EXPECT_EQ(CountWarnings("Sessions"), 1U) << agent_.ReadLog();
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(MachineTest, ABurstIsStoredWholeAndOthersAreServedMeanwhile) {
    constexpr int kLogons = 20'000;
    constexpr int kOthers = 100;
    WriteSettings(kOnlySessions);
    agent_.Drop(ModelText{.name = "Other", .params = {{.name = "Text", .defaultText = "x"}}});
    WriteLogons(10, "journal/a.journal");
    ASSERT_TRUE(agent_.StartAndServe());
    ASSERT_TRUE(WaitForCount("Logon", 10)) << agent_.ReadLog();
    WriteLogons(kLogons, "burst.journal");
    std::filesystem::rename(agent_.GetScratch() / "burst.journal", agent_.GetScratch() / "journal/b.journal");
    ASSERT_TRUE(WaitForCount("Logon", 11)) << agent_.ReadLog();
    for (int i = 0; i < kOthers; ++i) {
        ASSERT_EQ(agent_
                      .Request("POST", "/actions/EventLogManagerCreateEvent",
                               R"({"Values":{"ModelName":"Other","EventParams":{}}})")
                      .status,
                  200);
    }
    EXPECT_LT(Count("Logon"), kLogons) << "the others had to wait for the end of the burst";
    EXPECT_EQ(Count("Other"), kOthers);
    EXPECT_TRUE(WaitForCount("Logon", kLogons)) << agent_.ReadLog();
    // Ten entries are in both files, each is one event.
    EXPECT_EQ(Value("SELECT count(DISTINCT C_Record) = count(*) FROM Event_Logon"), "1");
    EXPECT_EQ(agent_.Stop(), 0);
}

TEST_F(MachineTest, AnAgentThatIsKilledLeavesNoReader) {
    WriteSettings(kOnlySessions);
    WriteLogons(10);
    ASSERT_TRUE(agent_.StartAndServe());
    ASSERT_TRUE(WaitForCount("Logon", 10));
    EXPECT_EQ(CountReaders(), 1);
    agent_.Signal(SIGKILL);
    EXPECT_EQ(agent_.Wait(), -SIGKILL);
    EXPECT_TRUE(WaitFor([&] { return CountReaders() == 0; }));
}

TEST_F(MachineTest, TheReadersOfTheJournalEndWithTheAgent) {
    WriteSettings(kOnlySessions);
    WriteLogons(10);
    ASSERT_TRUE(agent_.StartAndServe());
    ASSERT_TRUE(WaitForCount("Logon", 10));
    EXPECT_EQ(agent_.Stop(), 0);
    EXPECT_EQ(CountWarnings("Sessions"), 0U) << agent_.ReadLog();
    EXPECT_EQ(CountReaders(), 0);
}

}  // namespace
