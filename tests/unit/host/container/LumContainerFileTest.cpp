#include <cerrno>
#include <string>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/container/LumContainer.h"
#include "host/file/LumFile.h"
#include "support/LogReader.h"
#include "support/ResourceLimit.h"
#include "support/TempDirectory.h"
#include "support/shim/FaultPlan.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

/// A temporary directory of the test's own for SaveToTempFile.
class LumContainerFile : public testing::Test {
protected:
    LumContainerFile() : before_(GetTempDirectory()) {
        SetTempDirectory(LumString(directory_.Path().string()));
        container_.SetString("Name", "value");
        container_.SetInt32("List", 1, 2);
    }
    ~LumContainerFile() override { SetTempDirectory(before_); }

    const LumString before_;
    const TempDirectory directory_;
    HostLogLines log_;
    LumContainer container_;
};

std::string ErrorOf(const LumString& path) {
    LumContainer container;
    container.SetInt32("Kept", 1);
    const LumContainer before = container;
    LumString error;
    EXPECT_FALSE(container.LoadFromFile(path, error));
    EXPECT_EQ(container, before);
    return std::string(error.View());
}

}  // namespace

TEST_F(LumContainerFile, IsSyncedBeforeItsPathIsReturned) {
    FaultPlan plan;
    plan.Watch(directory_.Path().string());
    FaultShimUse(&plan);
    constexpr uint64_t calls = 3;  // made, written, synced
    for (uint64_t nth = 1; nth <= calls; ++nth) {
        plan.Arm(FaultPlan::Kind::kBroken, nth);
        EXPECT_TRUE(container_.SaveToTempFile().IsEmpty()) << nth;
        plan.Disarm();
        EXPECT_EQ(directory_.CountEntries(), 0U) << nth;
    }
    plan.Arm(FaultPlan::Kind::kBroken, calls + 1);
    EXPECT_FALSE(container_.SaveToTempFile().IsEmpty());
    EXPECT_EQ(plan.Disarm(), calls);
    FaultShimUse(nullptr);
}

TEST_F(LumContainerFile, HoldsTheWholeEncodingForTheOwnerAlone) {
    const LumString path = container_.SaveToTempFile();
    EXPECT_THAT(path.GetString(), StartsWith(directory_.Path().string() + "/"));
    struct stat status {};
    ASSERT_EQ(lstat(path.GetString(), &status), 0);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_EQ(ReadWholeFile(path.GetString()), container_.ToCbor());
    EXPECT_THAT(log_.Said(), IsEmpty());
}

TEST_F(LumContainerFile, EachSaveMakesAFileOfItsOwn) {
    const LumString one = container_.SaveToTempFile();
    const LumString other = container_.SaveToTempFile();
    EXPECT_NE(one, other);
    EXPECT_EQ(directory_.CountEntries(), 2U);
}

TEST_F(LumContainerFile, IsReadBackAsItWas) {
    LumContainer read;
    LumString error;
    EXPECT_TRUE(read.LoadFromFile(container_.SaveToTempFile(), error)) << error.GetString();
    EXPECT_EQ(read, container_);
    EXPECT_TRUE(read.LoadFromFile(LumContainer().SaveToTempFile(), error)) << error.GetString();
    EXPECT_EQ(read, LumContainer());
}

TEST_F(LumContainerFile, ALargeContainerIsWrittenWhole) {
    container_.SetString("Large", LumString(std::string(std::size_t{20} << 20U, 'x')));
    LumContainer read;
    LumString error;
    EXPECT_TRUE(read.LoadFromFile(container_.SaveToTempFile(), error)) << error.GetString();
    EXPECT_EQ(read, container_);
}

TEST_F(LumContainerFile, ADirectoryThatIsGoneIsMadeAgain) {
    SetTempDirectory(directory_.At("gone"));
    EXPECT_TRUE(IsRegularFile(container_.SaveToTempFile()));
    EXPECT_THAT(log_.Said(), IsEmpty());
}

TEST_F(LumContainerFile, ADirectoryThatCannotBeIsOneErrorLineAndAnEmptyPath) {
    directory_.Write("file", "");
    SetTempDirectory(directory_.At("file"));
    EXPECT_EQ(container_.SaveToTempFile(), "");
    EXPECT_THAT(log_.Said(),
                ElementsAre("error Host LumContainer::SaveToTempFile: Failed to create a file in '" +
                            (directory_ / "file") + "': Not a directory"));
}

TEST_F(LumContainerFile, NothingIsWrittenThatCouldNotBeReadAgain) {
    container_.SetString("Large", LumString(std::string(std::size_t{64} << 20U, 'x')));
    EXPECT_EQ(container_.SaveToTempFile(), "");
    EXPECT_EQ(directory_.CountEntries(), 0U);
    ASSERT_EQ(log_.Said().size(), 1U);
    EXPECT_THAT(log_.Said()[0], HasSubstr(" bytes are more than the 67108864 that a file may have"));
}

TEST_F(LumContainerFile, AFullDiskIsOneErrorLineAndLeavesNoFile) {
    container_.SetString("Large", LumString(std::string(100000, 'x')));
    {
        const ResourceLimit full(RLIMIT_FSIZE, 4096);
        EXPECT_EQ(container_.SaveToTempFile(), "");
    }
    EXPECT_EQ(directory_.CountEntries(), 0U);
    const std::vector<std::string> lines = log_.Said();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(lines[0], StartsWith("error Host LumContainer::SaveToTempFile: Failed to write '" +
                                     directory_.Path().string() + "/"));
    EXPECT_THAT(lines[0], HasSubstr("': File too large"));
}

TEST_F(LumContainerFile, NoDescriptorIsLeftOpen) {
    const auto lowestFree = [] {
        const int file = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(file);
        return file;
    };
    const int before = lowestFree();
    LumContainer read;
    LumString error;
    EXPECT_TRUE(read.LoadFromFile(container_.SaveToTempFile(), error));
    {
        container_.SetString("Large", LumString(std::string(100000, 'x')));
        const ResourceLimit full(RLIMIT_FSIZE, 4096);
        EXPECT_EQ(container_.SaveToTempFile(), "");
    }
    EXPECT_EQ(lowestFree(), before);
}

TEST_F(LumContainerFile, SaysWhyAFileCannotBeRead) {
    EXPECT_EQ(ErrorOf(directory_.At("none")), "No such file or directory");
    EXPECT_EQ(ErrorOf(LumString(directory_.Path().string())), "Is a directory");
    ASSERT_EQ(mkfifo(directory_.At("pipe").GetString(), 0600), 0);
    EXPECT_EQ(ErrorOf(directory_.At("pipe")), "Not a regular file");
    directory_.Write("empty", "");
    EXPECT_EQ(ErrorOf(directory_.At("empty")),
              "This is not a container file, the tag 55799 is missing at byte 0");
    directory_.Write("cut", container_.ToCbor().substr(0, 10));
    EXPECT_EQ(ErrorOf(directory_.At("cut")), "The container ends too early at byte 10");
}

TEST_F(LumContainerFile, AFileOfMoreThan64MebibytesIsRefused) {
    directory_.Write("large", "");
    ASSERT_EQ(truncate(directory_.At("large").GetString(), (off_t{64} << 20U) + 1), 0);
    EXPECT_EQ(ErrorOf(directory_.At("large")), "Larger than 67108864 bytes");
}
