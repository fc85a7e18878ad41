#include <string>

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "agent/ServiceUser.h"
#include "support/EndChild.h"
#include "support/TempDirectory.h"

namespace {

/// A configuration directory in a place that everybody may enter.
class ServiceUserTest : public testing::Test {
protected:
    ServiceUserTest() {
        directory_.MakeDirectory("config");
        EXPECT_EQ(::chmod(directory_.Path().c_str(), 0755), 0);
        commandLine_.configDirectory = directory_ / "config";
        commandLine_.dataDirectory = directory_ / "data";
        commandLine_.socketPath = directory_ / "run/agent.sock";
    }

    void GiveConfigurationTo(uid_t user) const {
        ASSERT_EQ(::chown(commandLine_.configDirectory.c_str(), user, static_cast<gid_t>(-1)), 0);
    }
    /// Who a process is after the step; -1 where it was refused. The step cannot be taken back, so a child
    /// takes it.
    [[nodiscard]] int UserAfterwards() const {
        const pid_t child = ::fork();
        if (child == 0) {
            LumString error;
            const bool done = BecomeOwnerOfConfiguration(commandLine_, error);
            EndChild(!done ? 2 : ::geteuid() == 0 && ::getuid() == 0 ? 0 : 1);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        return WEXITSTATUS(status) == 2 ? -1 : WEXITSTATUS(status);
    }
    [[nodiscard]] struct stat Look(const char* name) const {
        struct stat status = {};
        EXPECT_EQ(::stat((directory_ / name).c_str(), &status), 0) << name;
        return status;
    }

    const TempDirectory directory_;
    CommandLine commandLine_;
    const passwd* const nobody_ = ::getpwnam("nobody");
};

constexpr int kRoot = 0;
constexpr int kAnother = 1;

TEST_F(ServiceUserTest, ChangesNothingWhereTheConfigurationIsRoots) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    EXPECT_EQ(UserAfterwards(), kRoot);
    EXPECT_FALSE(directory_.Has("data"));
    GiveConfigurationTo(4242);
    EXPECT_EQ(UserAfterwards(), kRoot) << "a user without a name";
    commandLine_.configDirectory = directory_ / "missing";
    EXPECT_EQ(UserAfterwards(), kRoot);
}

TEST_F(ServiceUserTest, BecomesTheOwnerAndMakesTheDirectories) {
    if (::geteuid() != 0 || nobody_ == nullptr) {
        GTEST_SKIP() << "only root can become another user";
    }
    GiveConfigurationTo(nobody_->pw_uid);
    EXPECT_EQ(UserAfterwards(), kAnother);
    EXPECT_EQ(Look("data").st_uid, nobody_->pw_uid);
    EXPECT_EQ(Look("data").st_mode & 0777U, 0700U);
    EXPECT_EQ(Look("run").st_uid, nobody_->pw_uid);
    EXPECT_EQ(Look("run").st_mode & 0777U, 0755U);
}

TEST_F(ServiceUserTest, TakesOverWhatIsRootsAndEmptyAndNothingElse) {
    if (::geteuid() != 0 || nobody_ == nullptr) {
        GTEST_SKIP() << "only root can become another user";
    }
    GiveConfigurationTo(nobody_->pw_uid);
    directory_.MakeDirectory("data");
    directory_.Write("run/somebody", "");
    EXPECT_EQ(UserAfterwards(), kAnother);
    EXPECT_EQ(Look("data").st_uid, nobody_->pw_uid);
    EXPECT_EQ(Look("run").st_uid, 0U);
}

TEST_F(ServiceUserTest, SaysWhereItCannotBeDone) {
    if (::geteuid() != 0 || nobody_ == nullptr) {
        GTEST_SKIP() << "only root can become another user";
    }
    GiveConfigurationTo(nobody_->pw_uid);
    directory_.Write("file", "");
    commandLine_.dataDirectory = directory_ / "file/data";
    EXPECT_EQ(UserAfterwards(), -1);
    LumString error;
    EXPECT_FALSE(BecomeOwnerOfConfiguration(commandLine_, error));
    EXPECT_EQ(error, "Cannot become user nobody, to whom the configuration belongs: Not a directory");
}

}  // namespace
