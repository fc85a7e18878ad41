#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include "filestore/OutboxFigures.h"
#include "support/TempDirectory.h"

namespace {

TEST(OutboxFigures, CountWhatIsComplete) {
    const TempDirectory scratch;
    scratch.Write("outbox/a.cbor", "12345");
    const std::string described = scratch.Write("outbox/a.json", "{}");
    scratch.Write("outbox/b.cbor", "1");
    scratch.Write("outbox/.lumforward.json", "{}");
    scratch.MakeDirectory("outbox/directory.json");
    const utimbuf times{1'000'000, 1'000'000};
    ASSERT_EQ(::utime(described.c_str(), &times), 0);
    const OutboxFigures figures = ReadOutboxFigures(scratch / "outbox");
    EXPECT_EQ(figures.files, 1U);
    EXPECT_EQ(figures.bytes, 8U);
    EXPECT_EQ(figures.oldest, 1'000'000);
}

TEST(OutboxFigures, AreNothingWhereThereIsNoOutbox) {
    const TempDirectory scratch;
    const OutboxFigures figures = ReadOutboxFigures(scratch / "outbox");
    EXPECT_EQ(figures.files, 0U);
    EXPECT_EQ(figures.oldest, 0);
}

TEST(OutboxFigures, SayWhetherItCanBeWritten) {
    const TempDirectory scratch;
    scratch.Write("outbox/here", "");
    const std::string outbox = scratch / "outbox";
    EXPECT_EQ(CheckOutbox(outbox), "");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(outbox), {}), 1);
    std::filesystem::remove_all(outbox);
    EXPECT_EQ(CheckOutbox(outbox),
              ("The outbox " + outbox + " cannot be written: No such file or directory.").c_str());
}

/// The kernel's own directories have no files without a name, and root may write into them.
TEST(OutboxFigures, TakeAFileSystemWithoutFilesWithoutANameAtItsWord) {
    if (::access("/proc", W_OK) != 0) {
        GTEST_SKIP() << "this takes the rights of root";
    }
    EXPECT_EQ(CheckOutbox("/proc"), "");
}

}  // namespace
