#include <cstdio>
#include <new>
#include <system_error>
#include <thread>

#include <gtest/gtest.h>
#include <pthread.h>

#include "fleet/forward/EntryReader.h"
#include "host/text/LumSha256.h"
#include "support/MemoryFault.h"
#include "support/TempDirectory.h"
#include "support/WaitFor.h"

namespace {

using Names = std::vector<std::string>;

class EntryReaderTest : public testing::Test {
protected:
    static constexpr std::size_t kMaxBytes = 1'048'576;

    /// Entries "000" and on, the content of each its number and `bytes` blanks; gives their descriptions.
    Names PutMany(int count, std::size_t bytes = 0) {
        Names names;
        for (int number = 0; number < count; ++number) {
            const std::string stem = Stem(number);
            scratch_.Write(stem + ".cbor", stem + std::string(bytes, ' '));
            scratch_.Write(stem + ".json",
                           R"({"FileLabel":"L","Upstream":true,"FileName":")" + stem + ".cbor\"}");
            names.push_back(stem + ".json");
        }
        return names;
    }
    static std::string Stem(int number) {
        const std::string digits = std::to_string(number);
        return std::string(3 - digits.size(), '0') + digits;
    }
    void RemoveFrom(int first, int end) const {
        for (int number = first; number < end; ++number) {
            std::remove((scratch_ / Stem(number) + ".json").c_str());
        }
    }
    /// The contents of all that are left, without their blanks; what cannot be read as the name of its
    /// description.
    Names TakeAll() {
        Names contents;
        while (const ReadEntry* const read = reader_.Next()) {
            const std::string& content = read->entry.content;
            contents.push_back(read->result == LoadResult::kReady ? content.substr(0, content.find(' '))
                                                                  : read->description);
        }
        return contents;
    }

    TempDirectory scratch_;
    const OutboxDirectory outbox_{scratch_.Path()};
    EntryReader reader_{outbox_};
};

TEST_F(EntryReaderTest, IsEmptyUntilItIsStarted) {
    EXPECT_TRUE(reader_.IsEmpty());
    EXPECT_EQ(reader_.Next(), nullptr);
    reader_.Start({}, kMaxBytes);
    EXPECT_TRUE(reader_.IsEmpty());
}

TEST_F(EntryReaderTest, GivesEveryEntryInTheOrderOfItsName) {
    reader_.Start(PutMany(100), kMaxBytes);
    EXPECT_FALSE(reader_.IsEmpty());
    const Names contents = TakeAll();
    ASSERT_EQ(contents.size(), 100U);
    for (int number = 0; number < 100; ++number) {
        EXPECT_EQ(contents[static_cast<std::size_t>(number)], Stem(number));
    }
    EXPECT_TRUE(reader_.IsEmpty());
}

TEST_F(EntryReaderTest, ReadsFewOnlyWhenTheyAreAskedFor) {
    constexpr int few = static_cast<int>(EntryReader::kMany) - 1;
    reader_.Start(PutMany(few), kMaxBytes);
    EXPECT_TRUE(reader_.IsReady());
    ASSERT_NE(reader_.Next(), nullptr);
    RemoveFrom(1, few);
    const Names rest = TakeAll();
    ASSERT_EQ(rest.size(), few - 1U);
    EXPECT_EQ(rest.front(), "001.json");
}

TEST_F(EntryReaderTest, GivesTheDigestOfEach) {
    reader_.Start(PutMany(40), kMaxBytes);
    while (const ReadEntry* const read = reader_.Next()) {
        EXPECT_EQ(read->entry.digest, Sha256Hex(read->entry.content));
        EXPECT_EQ(read->entry.name, read->entry.content + ".cbor");
    }
}

TEST_F(EntryReaderTest, WhatCannotBeReadSaysWhyAndTheNextFollow) {
    const Names names = PutMany(40);
    scratch_.Write("003.json", "no object");
    scratch_.Write("020.cbor", std::string(kMaxBytes + 1, ' '));
    scratch_.Write("021.json", R"({"Upstream":false,"FileName":"021.cbor"})");
    reader_.Start(names, kMaxBytes);
    int ready = 0;
    while (const ReadEntry* const read = reader_.Next()) {
        if (read->description == "003.json") {
            EXPECT_EQ(read->result, LoadResult::kBad);
            EXPECT_EQ(read->reason, "003.json: it is not a JSON object");
        } else if (read->description == "020.json") {
            EXPECT_EQ(read->result, LoadResult::kBad);
            EXPECT_EQ(read->reason, "020.cbor: it is larger than the broker takes");
        } else if (read->description == "021.json") {
            EXPECT_EQ(read->result, LoadResult::kStays);
        } else {
            EXPECT_EQ(read->result, LoadResult::kReady) << read->description;
            ++ready;
        }
    }
    EXPECT_EQ(ready, 37);
}

TEST_F(EntryReaderTest, ReadsAheadUntilItHasReadEnough) {
    constexpr std::size_t bytes = 100'000;
    constexpr int atMost = static_cast<int>(EntryReader::kBytesAhead / bytes) + 1;
    constexpr int all = atMost + 20;
    reader_.Start(PutMany(all, bytes), kMaxBytes);
    EXPECT_TRUE(WaitFor([this] { return reader_.IsReady(); }));
    ASSERT_NE(reader_.Next(), nullptr);
    // The one that was taken made room for another one at most.
    RemoveFrom(atMost + 1, all);
    const Names rest = TakeAll();
    ASSERT_EQ(rest.size(), all - 1U);
    EXPECT_EQ(rest[atMost], Stem(atMost + 1) + ".json");
    EXPECT_EQ(rest.back(), Stem(all - 1) + ".json");
}

TEST_F(EntryReaderTest, OneThatIsLargerThanAllThatIsReadAheadIsGiven) {
    const Names names = PutMany(40, EntryReader::kBytesAhead);
    reader_.Start(names, kMaxBytes);
    EXPECT_EQ(TakeAll().size(), names.size());
}

TEST_F(EntryReaderTest, AStartForgetsWhatWasToBeRead) {
    const Names names = PutMany(60);
    reader_.Start(names, kMaxBytes);
    ASSERT_NE(reader_.Next(), nullptr);
    reader_.Start({"050.json", "051.json"}, kMaxBytes);
    EXPECT_EQ(TakeAll(), (Names{"050", "051"}));
    reader_.Start(names, kMaxBytes);
    ASSERT_NE(reader_.Next(), nullptr);
    reader_.Start(names, kMaxBytes);
    EXPECT_EQ(TakeAll().size(), names.size());
    reader_.Start(names, kMaxBytes);
    reader_.Start({}, kMaxBytes);
    EXPECT_TRUE(reader_.IsEmpty());
}

TEST_F(EntryReaderTest, StopsReadingWhenItIsDestroyed) {
    const Names names = PutMany(40, EntryReader::kBytesAhead);
    EntryReader reader(outbox_);
    reader.Start(names, kMaxBytes);
    EXPECT_NE(reader.Next(), nullptr);
}

TEST_F(EntryReaderTest, WhatReadingAheadThrowsIsThrownToTheOwner) {
    constexpr std::size_t bytes = 77'777;
    const Names names = PutMany(40, bytes);
    {
        const MemoryFault third(3, Stem(0).size() + bytes + 1);
        reader_.Start(names, kMaxBytes);
        EXPECT_NE(reader_.Next(), nullptr);
        EXPECT_NE(reader_.Next(), nullptr);
        EXPECT_THROW(static_cast<void>(reader_.Next()), std::bad_alloc);
    }
    reader_.Start(names, kMaxBytes);
    EXPECT_EQ(TakeAll().size(), names.size());
}

/// No thread can be made, for its stack would be larger than all memory there can be.
class NoThreads {
public:
    NoThreads() {
        pthread_getattr_default_np(&before_);
        pthread_attr_t attributes;
        pthread_getattr_default_np(&attributes);
        pthread_attr_setstacksize(&attributes, std::size_t{1} << 47U);
        EXPECT_EQ(pthread_setattr_default_np(&attributes), 0);
        pthread_attr_destroy(&attributes);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;
    ~NoThreads() {
        pthread_setattr_default_np(&before_);
        pthread_attr_destroy(&before_);
    }

private:
    pthread_attr_t before_{};
};

TEST_F(EntryReaderTest, ReadsAllWhereNoThreadIsToBeHad) {
    const NoThreads none;
    EXPECT_THROW(std::thread([] {}), std::system_error);
    reader_.Start(PutMany(50), kMaxBytes);
    EXPECT_EQ(TakeAll().size(), 50U);
}

}  // namespace
