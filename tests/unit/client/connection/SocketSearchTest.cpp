#include <gtest/gtest.h>

#include "client/connection/SocketSearch.h"

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

}  // namespace
