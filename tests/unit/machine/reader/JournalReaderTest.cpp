#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <endian.h>
#include <gtest/gtest.h>

#include "machine/reader/JournalReader.h"
#include "support/ChildProcess.h"
#include "support/JournalFile.h"
#include "support/TempDirectory.h"

namespace {

/// Where the entries of a journal file stand in it, in their order.
std::vector<std::size_t> FindEntries(const std::string& file) {
    constexpr std::size_t headerSizeAt = 88;
    constexpr std::size_t objectSizeAt = 8;
    constexpr char entryType = 3;
    const auto number = [&file](std::size_t at) {
        uint64_t value = 0;
        std::memcpy(&value, file.data() + at, sizeof(value));
        return static_cast<std::size_t>(le64toh(value));
    };
    std::vector<std::size_t> entries;
    std::size_t size = 0;
    for (std::size_t at = number(headerSizeAt); at + 2 * objectSizeAt <= file.size();
         at += (size + 7) / 8 * 8) {
        size = number(at + objectSizeAt);
        if (size == 0) {
            break;
        }
        if (file[at] == entryType) {
            entries.push_back(at);
        }
    }
    return entries;
}

/// A journal of three entries, and a reader that has found the first.
class JournalReaderTest : public testing::Test {
protected:
    void SetUp() override {
        directory_.MakeDirectory("journal");
        JournalFile journal;
        for (const char* const message : {"one", "two", "three"}) {
            journal.Add(1'780'000'000, {{"MESSAGE", message}});
        }
        ASSERT_TRUE(journal.Write(directory_ / "journal/a.journal"));
        ASSERT_TRUE(reader_.Open(directory_ / "journal", {}, error_)) << error_;
        ASSERT_EQ(reader_.SeekAfter("t=1", 0), JournalReader::Place::kGone);
    }

    TempDirectory directory_;
    JournalReader reader_;
    JournalEntry entry_;
    std::string error_;
};

TEST_F(JournalReaderTest, PassesOverAnEntryThatIsDamagedOnceItWasFound) {
    const std::vector<std::size_t> entries = FindEntries(directory_.Read("journal/a.journal"));
    ASSERT_EQ(entries.size(), 3U);
    std::fstream(directory_ / "journal/a.journal", std::ios::in | std::ios::out | std::ios::binary)
        .seekp(static_cast<std::streamoff>(entries[0]))
        .put('\0');
    ASSERT_EQ(reader_.Next({"MESSAGE"}, entry_, error_), 1) << error_;
    EXPECT_EQ(entry_.Get("MESSAGE"), "two");
    EXPECT_EQ(reader_.TakeDamaged(), 1U);
    EXPECT_EQ(reader_.TakeDamaged(), 0U);
    EXPECT_EQ(reader_.Next({"MESSAGE"}, entry_, error_), 1) << error_;
    EXPECT_EQ(entry_.Get("MESSAGE"), "three");
    EXPECT_EQ(reader_.Next({"MESSAGE"}, entry_, error_), 0);
}

TEST_F(JournalReaderTest, CountsWhatIsMissingAfterACursor) {
    const std::string directory = directory_ / "journal";
    ASSERT_EQ(reader_.Next({}, entry_, error_), 1) << error_;
    EXPECT_EQ(CountRemoved(directory, entry_.cursor), 0U);
    EXPECT_EQ(CountRemoved(directory, "t=1"), std::nullopt) << "it has no number";
    EXPECT_EQ(CountRemoved(directory, "i=1"), std::nullopt) << "it is not a place";
    EXPECT_EQ(CountRemoved(directory_ / "nowhere", entry_.cursor), std::nullopt);
    EXPECT_EQ(CountRemoved(directory, "i=1;t=1"), std::nullopt) << "of another writer";
}

/// The library serves no process but the one that has opened the journal.
TEST_F(JournalReaderTest, SaysWhyItCannotReadOn) {
    ASSERT_EQ(reader_.Next({"MESSAGE"}, entry_, error_), 1) << error_;
    ChildProcess child([this](const ChildProcess::Parent& /*parent*/) {
        EXPECT_EQ(reader_.Next({"MESSAGE"}, entry_, error_), -1);
        EXPECT_EQ(error_, "the journal cannot be read: No child processes");
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.Join(), 0);
}

}  // namespace
