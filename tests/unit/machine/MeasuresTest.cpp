#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include "machine/measures/DiskSource.h"
#include "machine/measures/LoadSource.h"
#include "machine/measures/Mounts.h"
#include "machine/measures/ProcFile.h"
#include "machine/measures/ProcText.h"
#include "support/RefusedCall.h"
#include "support/TempDirectory.h"

namespace {

TEST(Mounts, FileSystemsOfDisksAreGivenOnceADevice) {
    const std::vector<Mount> mounts = ParseMounts(
        "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
        "23 22 0:21 / /proc rw - proc proc rw\n"
        "24 22 8:1 /srv /mnt/bound rw shared:1 master:2 - ext4 /dev/sda1 rw\n"
        "25 22 8:2 / /media/my\\040disk\\134 rw - vfat /dev/sda2 rw\n"
        "26 22 0:50 / /net rw - nfs4 host:/ rw\n"
        "27 22 7:1 / /snap ro - squashfs /dev/loop1 ro\n"
        "28 22\n\nnonsense");
    ASSERT_EQ(mounts.size(), 2U);
    EXPECT_EQ(mounts[0].point, "/");
    EXPECT_EQ(mounts[0].type, "ext4");
    EXPECT_EQ(mounts[1].point, "/media/my disk\\");
}

TEST(Mounts, ABackslashBeforeAnythingElseStaysAsItIs) {
    const std::vector<Mount> mounts = ParseMounts(
        "25 22 8:2 / /a\\04 rw - vfat /dev/sda2 rw\n"
        "26 22 8:3 / /a\\049\\x rw - vfat /dev/sda3 rw\n");
    ASSERT_EQ(mounts.size(), 2U);
    EXPECT_EQ(mounts[0].point, "/a\\04");
    EXPECT_EQ(mounts[1].point, "/a\\049\\x");
}

TEST(ProcFile, SaysWhyItCannotBeRead) {
    const TempDirectory directory;
    const std::string path = directory.Write("large", std::string((4U << 20U) + 1, 'x'));
    std::string content = "kept";
    LumString error;
    EXPECT_FALSE(ReadProcFile(path.c_str(), content, error));
    EXPECT_EQ(error, (path + ": it is over 4 MiB").c_str());
    EXPECT_FALSE(ReadProcFile("/nowhere", content, error));
    EXPECT_EQ(error, "/nowhere: No such file or directory");
}

TEST(ProcText, LoadAveragesAreTheFirstThreeNumbers) {
    const LoadAverages averages = ParseLoadAverages("0.52 1.25 10.00 3/456 7890\n");
    EXPECT_EQ(averages.minutes1, 0.52);
    EXPECT_EQ(averages.minutes5, 1.25);
    EXPECT_EQ(averages.minutes15, 10.0);
    EXPECT_EQ(ParseLoadAverages("").minutes1, 0.0);
}

TEST(ProcText, AMemoryValueHasItsWholeKey) {
    const std::string text = "MemTotal:       24731680 kB\nMemFree:         100 kB\nMemAvailable:   200 kB\n";
    EXPECT_EQ(ParseMemoryKiB(text, "MemTotal"), 24731680U);
    EXPECT_EQ(ParseMemoryKiB(text, "MemAvailable"), 200U);
    EXPECT_EQ(ParseMemoryKiB(text, "Mem"), 0U);
    EXPECT_EQ(ParseMemoryKiB("", "MemTotal"), 0U);
    EXPECT_EQ(ParseMemoryKiB("Other: 1 kB\nMemTotal:   ", "MemTotal"), 0U);
    EXPECT_EQ(ParseMemoryKiB("MemTotal: much", "MemTotal"), 0U);
    EXPECT_EQ(ParseMemoryKiB("Other: 1 kB", "MemTotal"), 0U);
}

TEST(ProcText, PressureIsThatOfSomeOverFiveMinutes) {
    EXPECT_EQ(ParsePressure(
                  "some avg10=1.00 avg60=2.00 avg300=3.50 total=1\nfull avg10=0 avg60=0 avg300=9 total=0\n"),
              3.5);
    EXPECT_EQ(ParsePressure(""), 0.0);
}

/// Reads from `position`; the number of events.
std::size_t ReadOnce(IntervalSource& source, std::string& position) {
    SourceBatch batch;
    LumString error;
    EXPECT_TRUE(source.ReadSince(position, 100, batch, error)) << error.GetString();
    position = batch.position;
    return batch.events.size();
}

TEST(IntervalSource, AReadingIsTakenOnceAnInterval) {
    LoadSource source(300'000);
    std::string position;
    EXPECT_EQ(ReadOnce(source, position), 1U);
    EXPECT_EQ(source.GetWaitMs(), 300'000U);
    EXPECT_EQ(ReadOnce(source, position), 0U);
    EXPECT_LE(source.GetWaitMs(), 300'000U);
    EXPECT_GT(source.GetWaitMs(), 200'000U);
    LoadSource restarted(300'000);
    EXPECT_EQ(ReadOnce(restarted, position), 0U) << "a restart brings the reading forward";
}

TEST(IntervalSource, AReadingFromBeforeTheClockWasSetBackDoesNotCount) {
    LoadSource source(300'000);
    std::string position = std::to_string(std::time(nullptr) + 1'000'000);
    EXPECT_EQ(ReadOnce(source, position), 1U);
}

TEST(IntervalSource, AReadingThatFailsIsSaid) {
    LoadSource load(1000);
    DiskSource disks(1000);
    SourceBatch batch;
    LumString loadError;
    LumString diskError;
    bool isRead = false;
    if (!RunRefused(SYS_openat, EMFILE, [&] {
            isRead = load.ReadSince("", 1, batch, loadError) || disks.ReadSince("", 1, batch, diskError);
        })) {
        GTEST_SKIP() << "the system does not let a call be refused";
    }
    EXPECT_FALSE(isRead);
    EXPECT_EQ(loadError, "/proc/loadavg: Too many open files");
    EXPECT_EQ(diskError, "/proc/self/mountinfo: Too many open files");
}

TEST(LoadSource, MeasuresThisMachine) {
    LoadSource source(1000);
    SourceBatch batch;
    LumString error;
    ASSERT_TRUE(source.Open(error)) << error.GetString();
    ASSERT_TRUE(source.ReadSince("", 1, batch, error));
    ASSERT_EQ(batch.events.size(), 1U);
    int32_t total = 0;
    int32_t used = 0;
    double percent = 0;
    ASSERT_TRUE(batch.events[0].params.GetInt32("MemoryMb", total));
    ASSERT_TRUE(batch.events[0].params.GetInt32("MemoryUsedMb", used));
    ASSERT_TRUE(batch.events[0].params.GetDouble("MemoryUsedPercent", percent));
    EXPECT_GT(used, 0);
    EXPECT_GT(total, used);
    EXPECT_NEAR(percent, 100.0 * used / total, 1.0);
}

TEST(DiskSource, MeasuresThisMachine) {
    DiskSource source(1000);
    SourceBatch batch;
    LumString error;
    ASSERT_TRUE(source.Open(error)) << error.GetString();
    ASSERT_TRUE(source.ReadSince("", 1, batch, error));
    for (const MachineEvent& event : batch.events) {
        int32_t size = 0;
        int32_t used = 0;
        double percent = -1;
        ASSERT_TRUE(event.params.GetInt32("SizeMb", size));
        ASSERT_TRUE(event.params.GetInt32("UsedMb", used));
        ASSERT_TRUE(event.params.GetDouble("UsedPercent", percent));
        EXPECT_LE(used, size);
        EXPECT_GE(percent, 0.0);
        EXPECT_LE(percent, 100.0);
    }
}

}  // namespace
