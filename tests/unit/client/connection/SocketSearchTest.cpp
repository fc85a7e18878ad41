#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/connection/SocketSearch.h"
#include "support/TempDirectory.h"

namespace {

class SocketSearch : public testing::Test {
protected:
    void SetUp() override { unsetenv("LUMCTL_SOCKET"); }
    void TearDown() override { unsetenv("LUMCTL_SOCKET"); }
};

TEST_F(SocketSearch, TakesWhatWasAskedForAlone) {
    setenv("LUMCTL_SOCKET", "/from/environment", 1);
    EXPECT_EQ(SocketCandidates("/asked/for"), std::vector<std::string>{"/asked/for"});
}

TEST_F(SocketSearch, TakesTheEnvironmentNext) {
    setenv("LUMCTL_SOCKET", "/from/environment", 1);
    EXPECT_EQ(SocketCandidates(std::nullopt), std::vector<std::string>{"/from/environment"});
}

TEST_F(SocketSearch, LooksAtTheServiceFirstAndThenAtTheDataDirectory) {
    const std::vector<std::string> usual{"/run/lumagent/agent.sock", "/var/lib/lumagent/agent.sock"};
    EXPECT_EQ(SocketCandidates(std::nullopt), usual);
    setenv("LUMCTL_SOCKET", "", 1);
    EXPECT_EQ(SocketCandidates(std::nullopt), usual) << "an empty variable is none";
}

TEST_F(SocketSearch, SaysWhichGroupToJoin) {
    const std::string advice = PermissionAdvice(0660, "root", "adm", "ann");
    EXPECT_NE(advice.find("sudo adduser ann adm"), std::string::npos) << advice;
}

TEST_F(SocketSearch, SaysHowToLetAGroupInWhereNoneIs) {
    const std::string advice = PermissionAdvice(0600, "root", "root", "ann");
    EXPECT_NE(advice.find("the user 'root' alone"), std::string::npos) << advice;
    EXPECT_NE(advice.find("SocketGroup"), std::string::npos) << advice;
    EXPECT_EQ(advice.find("adduser"), std::string::npos) << advice;
}

TEST_F(SocketSearch, SaysWhereTheDirectoryIsClosed) {
    const std::string sentence = DescribeMissingPermission("/nowhere/agent.sock");
    EXPECT_NE(sentence.find("no permission to use /nowhere/agent.sock: its directory is closed"),
              std::string::npos)
        << sentence;
}

TEST_F(SocketSearch, NamesAnOwnerWithoutAnEntryByItsNumber) {
    const TempDirectory scratch;
    const std::string path = scratch.Write("agent.sock", "");
    if (chown(path.c_str(), 987654, 987655) != 0) {
        GTEST_SKIP() << "giving a file away takes the rights of root";
    }
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    EXPECT_NE(DescribeMissingPermission(path).find("it is open to the user '987654' alone"),
              std::string::npos);
    ASSERT_EQ(chmod(path.c_str(), 0660), 0);
    EXPECT_NE(DescribeMissingPermission(path).find("it is open to the group '987655'; "), std::string::npos);
}

}  // namespace
