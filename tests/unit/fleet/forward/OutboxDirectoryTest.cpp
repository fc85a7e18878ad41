#include <algorithm>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fleet/forward/OutboxDirectory.h"
#include "host/text/LumSha256.h"
#include "support/TempDirectory.h"

namespace {

using Names = std::vector<std::string>;

class OutboxDirectoryTest : public testing::Test {
protected:
    /// An entry as the file store writes it.
    void Put(const std::string& stem, const std::string& content = "content") {
        scratch_.Write(stem + ".cbor", content);
        Describe(stem,
                 R"({"FileLabel":"L","Upstream":true,"ReceivedAt":"2026-11-21T01:10:25Z","FileName":")" +
                     stem + R"(.cbor"})");
    }
    void Describe(const std::string& stem, const std::string& text) { scratch_.Write(stem + ".json", text); }

    [[nodiscard]] Names Next(const std::string& after, std::size_t limit) const {
        Names names;
        std::string error;
        EXPECT_TRUE(outbox_.NextDescriptions(
            after, limit, [](std::string_view name) { return name != "unwanted.json"; }, names, error))
            << error;
        return names;
    }
    [[nodiscard]] LoadResult Load(const std::string& name, std::size_t maxBytes = 1'000) {
        return outbox_.Load(name, maxBytes, entry_, reason_);
    }

    TempDirectory scratch_;
    OutboxDirectory outbox_{scratch_.Path()};
    OutboxEntry entry_;
    std::string reason_;
};

TEST_F(OutboxDirectoryTest, GivesTheFirstNamesInTheirOrder) {
    for (const char* const stem : {"5", "3", "1", "4", "2", "unwanted"}) {
        Put(stem);
    }
    scratch_.Write(".lumforward.json", "{}");
    scratch_.Write("notes.txt", "");
    EXPECT_EQ(Next("", 3), (Names{"1.json", "2.json", "3.json"}));
    EXPECT_EQ(Next("3.json", 3), (Names{"4.json", "5.json"}));
    EXPECT_EQ(Next("", 5), (Names{"1.json", "2.json", "3.json", "4.json", "5.json"}));
    EXPECT_TRUE(Next("5.json", 3).empty());
}

TEST_F(OutboxDirectoryTest, GivesTheFirstOfManyWhateverTheirOrderOnTheDisk) {
    Names all;
    for (int number = 100; number < 400; ++number) {
        const int shuffled = 100 + (number * 7) % 300;
        Describe(std::to_string(shuffled), "{}");
        all.push_back(std::to_string(number) + ".json");
    }
    EXPECT_EQ(Next("", 50), Names(all.begin(), all.begin() + 50));
    EXPECT_EQ(Next("349.json", 500), Names(all.begin() + 250, all.end()));
}

TEST_F(OutboxDirectoryTest, SaysWhyItCannotBeRead) {
    const OutboxDirectory missing(scratch_ / "missing");
    Names names{"kept"};
    std::string error;
    OutboxSize size;
    EXPECT_FALSE(missing.NextDescriptions(
        "", 1, [](std::string_view) { return true; }, names, error));
    EXPECT_EQ(error, scratch_ / "missing" + ": No such file or directory");
    EXPECT_EQ(names, Names{"kept"});
    EXPECT_FALSE(missing.Measure(size, error));
    EXPECT_EQ(missing.ChangeStamp(), -1);
}

TEST_F(OutboxDirectoryTest, CountsEntriesAndTheirContents) {
    OutboxSize size;
    std::string error;
    ASSERT_TRUE(outbox_.Measure(size, error));
    EXPECT_EQ(size.entries, 0U);
    EXPECT_EQ(size.oldest, 0);
    Put("1", "12345");
    Put("2", "123");
    scratch_.Write(".lumforward.json", "not counted");
    scratch_.MakeDirectory(OutboxDirectory::kSetAside);
    const timespec old[] = {{1'000, 0}, {1'000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (scratch_ / "1.json").c_str(), old, 0), 0);
    ASSERT_TRUE(outbox_.Measure(size, error));
    EXPECT_EQ(size.entries, 2U);
    EXPECT_EQ(size.bytes, 8);
    EXPECT_EQ(size.oldest, 1'000);
}

TEST_F(OutboxDirectoryTest, ItsStampChangesWithEachEntry) {
    const timespec old[] = {{1'000, 0}, {1'000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, scratch_.Path().c_str(), old, 0), 0);
    const int64_t before = outbox_.ChangeStamp();
    Put("1");
    EXPECT_NE(outbox_.ChangeStamp(), before);
}

TEST_F(OutboxDirectoryTest, ReadsAnEntry) {
    Put("20261121T011025Z-7-L", "bytes");
    ASSERT_EQ(Load("20261121T011025Z-7-L.json"), LoadResult::kReady);
    EXPECT_EQ(entry_.name, "20261121T011025Z-7-L.cbor");
    EXPECT_EQ(entry_.label, "L");
    EXPECT_EQ(entry_.receivedAt, "2026-11-21T01:10:25Z");
    EXPECT_EQ(entry_.content, "bytes");
    EXPECT_EQ(entry_.digest, Sha256Hex("bytes"));
    // What was read before leaves nothing behind.
    Put("shorter", "b");
    ASSERT_EQ(Load("shorter.json"), LoadResult::kReady);
    EXPECT_EQ(entry_.content, "b");
    EXPECT_EQ(entry_.digest, Sha256Hex("b"));
}

TEST_F(OutboxDirectoryTest, TellsWhatIsGoneFromWhatIsBad) {
    EXPECT_EQ(Load("1.json"), LoadResult::kGone);
    Put("1");
    unlink((scratch_ / "1.cbor").c_str());
    EXPECT_EQ(Load("1.json"), LoadResult::kBad);
    EXPECT_EQ(reason_, "1.cbor: the file that it describes is missing");
    Describe("2", R"({"Upstream":false,"FileName":"2.cbor"})");
    EXPECT_EQ(Load("2.json"), LoadResult::kStays);
    Describe("3", "[1]");
    EXPECT_EQ(Load("3.json"), LoadResult::kBad);
    EXPECT_EQ(reason_, "3.json: it is not a JSON object");
    Put("4", std::string(11, 'x'));
    EXPECT_EQ(Load("4.json", 10), LoadResult::kBad);
    EXPECT_EQ(reason_, "4.cbor: it is larger than the broker takes");
}

TEST_F(OutboxDirectoryTest, ReadsNothingButTheFileBeside) {
    for (const char* const name : {"../1.cbor", "2.cbor", "1.json", "", "sub/1.cbor", "1.cbor\\u0000"}) {
        Put("1");
        Describe("1", std::string(R"({"Upstream":true,"FileName":")") + name + R"("})");
        EXPECT_EQ(Load("1.json"), LoadResult::kBad) << name;
        EXPECT_EQ(reason_, "1.json: its FileName is not that of the file beside it") << name;
    }
}

TEST_F(OutboxDirectoryTest, FollowsNoLinkAndOpensNoPipe) {
    Put("1");
    const std::string content = scratch_ / "1.cbor";
    unlink(content.c_str());
    ASSERT_EQ(symlink("/etc/passwd", content.c_str()), 0);
    EXPECT_EQ(Load("1.json"), LoadResult::kBad);
    EXPECT_EQ(reason_, "1.cbor: it is not a regular file");
    unlink(content.c_str());
    ASSERT_EQ(mkfifo(content.c_str(), 0600), 0);
    EXPECT_EQ(Load("1.json"), LoadResult::kBad);
    EXPECT_EQ(reason_, "1.cbor: it is not a regular file");
    ASSERT_EQ(symlink("/etc/passwd", (scratch_ / "2.json").c_str()), 0);
    EXPECT_EQ(Load("2.json"), LoadResult::kBad);
}

TEST_F(OutboxDirectoryTest, RemovesBothFilesAndIsContentWhereTheyAreGone) {
    Put("1");
    std::string error;
    EXPECT_TRUE(outbox_.Remove("1.cbor", error)) << error;
    EXPECT_EQ(scratch_.CountEntries(), 0U);
    EXPECT_TRUE(outbox_.Remove("1.cbor", error)) << error;
    scratch_.MakeDirectory("2.json");
    EXPECT_FALSE(outbox_.Remove("2.cbor", error));
    EXPECT_EQ(error, scratch_ / "2.json" + ": Is a directory");
}

TEST_F(OutboxDirectoryTest, SetsAsideAllThatBelongsToAnEntry) {
    Put("1");
    Put("12");
    std::string error;
    EXPECT_TRUE(outbox_.SetAside("1.json", error)) << error;
    EXPECT_TRUE(scratch_.Has("set-aside/1.json"));
    EXPECT_TRUE(scratch_.Has("set-aside/1.cbor"));
    EXPECT_TRUE(scratch_.Has("12.json"));
    EXPECT_EQ(Next("", 10), Names{"12.json"});
    const OutboxDirectory missing(scratch_ / "missing");
    EXPECT_FALSE(missing.SetAside("1.json", error));
    EXPECT_EQ(error, scratch_ / "missing/set-aside" + ": No such file or directory");
}

}  // namespace
