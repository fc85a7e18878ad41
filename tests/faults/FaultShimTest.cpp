// The library that the sweeps trust: a fault hits the call that it is meant for, and no other.

#include <cerrno>
#include <csignal>
#include <new>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"
#include "host/file/LumFile.h"
#include "support/TempDirectory.h"
#include "support/shim/FaultPlan.h"

namespace {

using Kind = FaultPlan::Kind;

class FaultShim : public testing::Test {
protected:
    FaultShim() {
        plan_.Watch(directory_.Path().string());
        FaultShimUse(&plan_);
    }
    ~FaultShim() override { FaultShimUse(nullptr); }

    [[nodiscard]] bool Replace(const char* name) const {
        LumString error;
        return FileReplace(directory_.At(name), "text", error);
    }

    const TempDirectory directory_;
    FaultPlan plan_;
};

TEST_F(FaultShim, CountsTheCallsOfAReplacedFile) {
    plan_.Arm(Kind::kKill, 0);
    EXPECT_TRUE(Replace("a"));
    // Made, written, synced, renamed, its directory synced.
    EXPECT_EQ(plan_.Disarm(), 5U);
    EXPECT_TRUE(Replace("a"));
    EXPECT_EQ(plan_.count, 5U);
}

TEST_F(FaultShim, FailsEachCallInItsTurn) {
    for (uint64_t nth = 1; nth <= 5; ++nth) {
        plan_.Arm(Kind::kBroken, nth);
        EXPECT_FALSE(Replace("a")) << nth;
        EXPECT_EQ(errno, EIO) << nth;
    }
    plan_.Arm(Kind::kBroken, 6);
    EXPECT_TRUE(Replace("a"));
}

TEST_F(FaultShim, FailsAllFromOneOn) {
    plan_.Arm(Kind::kNoRoom, 2, FaultPlan::kForEver);
    EXPECT_FALSE(Replace("a"));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_FALSE(Replace("b"));
    EXPECT_FALSE(directory_.Has("b"));
    plan_.Disarm();
    EXPECT_TRUE(Replace("a"));
}

TEST_F(FaultShim, RefusesToOpenWithoutDescriptors) {
    directory_.Write("a", "text");
    plan_.Arm(Kind::kNoFiles, 1);
    std::string content;
    LumString error;
    EXPECT_FALSE(FileRead(directory_.At("a"), 10, content, error));
    EXPECT_EQ(errno, EMFILE);
    EXPECT_TRUE(FileRead(directory_.At("a"), 10, content, error));
}

TEST_F(FaultShim, LeavesOtherFilesAlone) {
    const TempDirectory elsewhere;
    plan_.Watch(directory_.Path().string(), directory_ / "log");
    plan_.Arm(Kind::kNoFiles, 1, FaultPlan::kForEver);
    EXPECT_GE(FileDescriptor(open((elsewhere / "a").c_str(), O_CREAT | O_WRONLY, 0600)).Get(), 0);
    EXPECT_GE(FileDescriptor(open((directory_ / "log").c_str(), O_CREAT | O_WRONLY, 0600)).Get(), 0);
    EXPECT_EQ(plan_.Disarm(), 0U);
}

TEST_F(FaultShim, KillsAtTheCall) {
    void* const place =
        mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(place, MAP_FAILED);
    auto* const shared = new (place) FaultPlan;
    shared->Watch(directory_.Path().string());
    const pid_t child = fork();
    if (child == 0) {
        FaultShimUse(shared);
        shared->Arm(Kind::kKill, 4);  // after the sync, before the rename
        _exit(Replace("a") ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    EXPECT_EQ(shared->count, 4U);
    EXPECT_FALSE(directory_.Has("a"));
    EXPECT_EQ(directory_.CountEntries(), 1U);
    munmap(place, sizeof(FaultPlan));
}

TEST_F(FaultShim, SlowsReadingDownAndFailsNothing) {
    ASSERT_TRUE(Replace("a"));
    const FileDescriptor file(open(directory_.At("a").GetString(), O_RDONLY | O_CLOEXEC));
    plan_.delayMs = 1;
    plan_.Arm(Kind::kSlow, 1, FaultPlan::kForEver);
    char bytes[8];
    EXPECT_EQ(pread(file.Get(), bytes, sizeof bytes, 0), 4);
    EXPECT_EQ(plan_.Disarm(), 1U);
}

}  // namespace
