// lumctl imports into an agent that takes it all, refuses some, or is gone on the way.

#include <csignal>
#include <string>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/file/FileDescriptor.h"
#include "host/file/LumFile.h"
#include "support/AgentProcess.h"
#include "support/Process.h"
#include "support/WaitFor.h"

namespace {

class ImportTest : public testing::Test {
protected:
    ImportTest() {
        agent_.WriteShippedSettings();
        agent_.Drop({.name = "Logon", .params = {{.name = "User"}}});
        EXPECT_TRUE(agent_.StartAndServe());
    }

    [[nodiscard]] std::string Path(const std::string& name) const { return agent_.GetScratch() / name; }

    void StartImport(const std::string& file) {
        client_.Start(
            {BinaryDirectory() + "/lumctl", "--socket", agent_.GetSocketPath(), "import", "Logon", file},
            Path("said"));
    }
    [[nodiscard]] std::string Said() const { return ReadWholeFile(Path("said")); }

    [[nodiscard]] static std::string Lines(int first, int last) {
        std::string lines;
        for (int i = first; i <= last; ++i) {
            lines += R"({"User":"user)" + std::to_string(i) + "\"}\n";
        }
        return lines;
    }
    /// The last line counts the events; the lines after them are the unknown ones.
    [[nodiscard]] std::size_t CountAndCheckNext() const {
        const std::string said = Said();
        const std::size_t count = std::stoul(said.substr(said.rfind('\n', said.size() - 2) + 1));
        EXPECT_THAT(said, testing::HasSubstr("lumctl: line " + std::to_string(count + 1) + ": "));
        EXPECT_THAT(said, testing::HasSubstr("--from-line " + std::to_string(count + 1) + " goes on with"));
        return count;
    }
    [[nodiscard]] std::string Events() const {
        return agent_.Database().Rows("SELECT count(*), count(DISTINCT C_User) FROM Event_Logon");
    }

    AgentProcess agent_;
    Process client_;
};

TEST_F(ImportTest, TakesManyWindowsInOrder) {
    StartImport(agent_.GetScratch().Write("lines", Lines(1, 5000)));
    EXPECT_EQ(client_.Wait(), 0);
    EXPECT_EQ(Said(), "5000 events imported, 0 lines failed\n");
    EXPECT_EQ(Events(), "5000|5000");
    EXPECT_EQ(agent_.Database().Rows("SELECT count(*) FROM Event_Logon WHERE C_User <> 'user' || E_Id"), "0");
}

TEST_F(ImportTest, NamesTheLinesThatTheAgentRefusesInTheirOrder) {
    StartImport(agent_.GetScratch().Write(
        "lines", Lines(1, 1500) + "{}\n" + "none\n" + Lines(1501, 3000) + "{}\n" + Lines(3001, 3001)));
    EXPECT_EQ(client_.Wait(), 1);
    const std::string failed = ": the action EventLogManagerCreateEvent answers status 1 (it failed)\n";
    EXPECT_THAT(Said(), testing::HasSubstr("lumctl: line 1501" + failed + "lumctl: agent: "));
    EXPECT_THAT(Said(), testing::HasSubstr("Failed to get value for parameter 'User' of model 'Logon'\n"
                                           "lumctl: line 1502: it is not JSON\n"
                                           "lumctl: line 3003" +
                                           failed));
    EXPECT_THAT(Said(), testing::EndsWith("3001 events imported, 3 lines failed\n"));
    EXPECT_EQ(Events(), "3001|3001");
}

TEST_F(ImportTest, SaysFromWhereToGoOnWhenTheAgentIsGone) {
    std::signal(SIGPIPE, SIG_IGN);  // lumctl may have ended before it gets its lines
    ASSERT_EQ(mkfifo(Path("lines").c_str(), 0600), 0);
    StartImport(Path("lines"));
    const FileDescriptor lines(open(Path("lines").c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_TRUE(FileWriteAll(lines.Get(), Lines(1, 3)));
    ASSERT_TRUE(WaitFor([this] { return Events() == "3|3"; }));
    agent_.Signal(SIGKILL);
    static_cast<void>(agent_.Wait());
    static_cast<void>(FileWriteAll(lines.Get(), Lines(4, 6)));
    EXPECT_EQ(client_.Wait(), 3);
    // The agent may have been killed between storing the first three and saying so.
    EXPECT_LE(CountAndCheckNext(), 3U);
}

TEST_F(ImportTest, KnowsWhatWasAnsweredBeforeTheAgentWasKilled) {
    StartImport(agent_.GetScratch().Write("lines", Lines(1, 200000)));
    ASSERT_TRUE(WaitFor([this] { return Events() != "0|0"; }));
    agent_.Signal(SIGKILL);
    static_cast<void>(agent_.Wait());
    ASSERT_EQ(client_.Wait(), 3);
    const std::size_t count = CountAndCheckNext();
    EXPECT_GE(std::stoul(Events()), count) << Said();
}

}  // namespace
