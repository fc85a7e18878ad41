#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "agent/InstanceLock.h"
#include "support/RefusedCall.h"
#include "support/TempDirectory.h"

namespace {

class InstanceLockFile : public testing::Test {
protected:
    TempDirectory scratch_;
    const LumString directory_{std::string_view(scratch_ / "")};
    LumString error_;
};

TEST_F(InstanceLockFile, KeepsASecondOneOutAndNamesTheFirst) {
    InstanceLock first;
    InstanceLock second;
    ASSERT_TRUE(first.Take(directory_, error_));
    EXPECT_FALSE(second.Take(directory_, error_));
    LumString expected;
    expected.Printf("Another agent (process %d) is running on the data directory %S", ::getpid(), directory_);
    EXPECT_EQ(error_, expected.GetString());
}

TEST_F(InstanceLockFile, KeepsASecondOneOutWhereTheFirstHasNotSaidWhoItIs) {
    InstanceLock first;
    InstanceLock second;
    ASSERT_TRUE(first.Take(directory_, error_));
    std::filesystem::resize_file(scratch_ / "agent.lock", 0);
    EXPECT_FALSE(second.Take(directory_, error_));
    EXPECT_EQ(error_.View().find("Another agent (process 0) is running on "), 0U) << error_.GetString();
}

TEST_F(InstanceLockFile, SaysThatTheSystemHasNoLocks) {
    const bool isRefused = RunRefused(SYS_flock, ENOLCK, [this] {
        InstanceLock lock;
        EXPECT_FALSE(lock.Take(directory_, error_));
    });
    if (!isRefused) {
        GTEST_SKIP() << "the system does not let a call be refused";
    }
    EXPECT_EQ(error_, ("Cannot lock " + (scratch_ / "") + ": No locks available").c_str());
}

TEST_F(InstanceLockFile, IsFreeAgainOnceItsHolderIsGone) {
    {
        InstanceLock first;
        ASSERT_TRUE(first.Take(directory_, error_));
    }
    scratch_.Write("agent.lock", "123456789\n");
    InstanceLock second;
    EXPECT_TRUE(second.Take(directory_, error_));
    EXPECT_EQ(ReadWholeFile(scratch_ / "agent.lock"), std::to_string(::getpid()) + "\n");
}

TEST_F(InstanceLockFile, IsForTheOwnerAlone) {
    InstanceLock lock;
    ASSERT_TRUE(lock.Take(directory_, error_));
    struct stat status = {};
    ASSERT_EQ(::stat((scratch_ / "agent.lock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(InstanceLockFile, SaysWhyItsFileCannotBeOpened) {
    InstanceLock lock;
    std::filesystem::create_directory(scratch_ / "agent.lock");
    EXPECT_FALSE(lock.Take(directory_, error_));
    EXPECT_EQ(error_, ("Cannot open " + (scratch_ / "agent.lock") + ": Is a directory").c_str());
}

TEST_F(InstanceLockFile, DoesNotFollowALink) {
    InstanceLock lock;
    scratch_.Write("other", "kept");
    std::filesystem::create_symlink(scratch_ / "other", scratch_ / "agent.lock");
    EXPECT_FALSE(lock.Take(directory_, error_));
    EXPECT_EQ(ReadWholeFile(scratch_ / "other"), "kept");
}

}  // namespace
