#include <atomic>
#include <cstdlib>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "alerts/LumHash.h"

namespace {

/// While it is set, no array can be had from the allocator that answers with null.
std::atomic<bool> arraysFail{false};

}  // namespace

// The program's own allocator of arrays, so that memory can run out where a table grows. Inlined, the two
// halves of a pair would look to the compiler as if they did not belong together.
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return arraysFail ? nullptr : std::malloc(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size) {
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
[[gnu::noinline]] void operator delete[](void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept {
    std::free(memory);
}

namespace {

using Table = LumHash<uint32_t>;

/// Keys from..to-1, each with itself as its value.
void Fill(Table& table, uint32_t from, uint32_t to) {
    for (uint32_t key = from; key < to; ++key) {
        ASSERT_NE(table.Insert({}, key, key), nullptr);
    }
}

TEST(LumHashText, IsTheOneAtATimeHash) {
    EXPECT_EQ(HashText(""), 0U);
    EXPECT_EQ(HashText("a"), 0xca2e9442U);
    EXPECT_EQ(HashText("The quick brown fox jumps over the lazy dog"), 0x519e91f5U);
    EXPECT_EQ(HashText("disk full-1"), 0xc7b16b12U);
}

TEST(LumHashText, ExtendsTheSignOfEachByte) {
    EXPECT_EQ(HashText("\xE9"), 0x409848ffU);
    EXPECT_EQ(HashText("caf\xC3\xA9-"), 0x44ad1c06U);
}

TEST(LumHash, FindsNothingBeforeTheFirstInsertion) {
    Table table(256, 80, 20);
    EXPECT_EQ(table.Find(0), nullptr);
    EXPECT_EQ(table.GetBucketCount(), 0U);
    EXPECT_EQ(table.GetCount(), 0U);
}

TEST(LumHash, TakesTheTwoHundredAndSeventhKeyWithoutGrowing) {
    Table table(256, 80, 20);
    Fill(table, 0, 206);
    EXPECT_EQ(table.GetBucketCount(), 256U);
    Fill(table, 206, 207);
    EXPECT_EQ(table.GetBucketCount(), 256U);
    EXPECT_EQ(table.GetCount(), 207U);
}

TEST(LumHash, GrowsForTheTwoHundredAndEighthKey) {
    Table table(256, 80, 20);
    Fill(table, 0, 208);
    EXPECT_EQ(table.GetBucketCount(), 307U);
    EXPECT_EQ(table.GetCount(), 208U);
}

TEST(LumHash, KeepsEveryKeyWhileItGrows) {
    Table table(256, 80, 20);
    Fill(table, 0, 10000);
    for (uint32_t key = 0; key < 10000; ++key) {
        ASSERT_NE(table.Find(key), nullptr) << key;
        EXPECT_EQ(*table.Find(key), key);
    }
    EXPECT_EQ(table.Find(10000), nullptr);
    EXPECT_LE(uint64_t{table.GetCount()} * 100 / table.GetBucketCount(), 80U);
}

TEST(LumHash, NeverGrowsWithoutGrowth) {
    Table table(4, 80, 0);
    Fill(table, 0, 100);
    EXPECT_EQ(table.GetBucketCount(), 4U);
    EXPECT_EQ(*table.Find(99), 99U);
}

TEST(LumHash, ChainsKeysOfOneBucket) {
    Table table(256, 80, 20);
    for (uint32_t i = 0; i < 5; ++i) {
        ASSERT_NE(table.Insert({}, 7 + i * 256, i), nullptr);
    }
    for (uint32_t i = 0; i < 5; ++i) {
        EXPECT_EQ(*table.Find(7 + i * 256), i);
    }
    EXPECT_EQ(table.Find(7 + 5 * 256), nullptr);
}

TEST(LumHash, FindsTheEntryThatWasPutInFrontOfItsChain) {
    Table table(256, 80, 20);
    ASSERT_NE(table.Insert("first", 7, 1), nullptr);
    ASSERT_NE(table.Insert("second", 7, 2), nullptr);
    EXPECT_EQ(*table.Find(7), 2U);
}

TEST(LumHash, TurnsAChainRoundWhenItGrows) {
    Table table(256, 80, 20);
    ASSERT_NE(table.Insert("first", 1000, 1), nullptr);
    ASSERT_NE(table.Insert("second", 1000, 2), nullptr);
    Fill(table, 0, 206);
    ASSERT_EQ(table.GetBucketCount(), 307U);
    EXPECT_EQ(*table.Find(1000), 1U);
}

TEST(LumHash, InsertsNothingWithoutMemory) {
    Table table(256, 80, 20);
    arraysFail = true;
    const bool first = table.Insert({}, 1, 1) != nullptr;
    arraysFail = false;
    EXPECT_FALSE(first);
    EXPECT_EQ(table.GetCount(), 0U);

    Fill(table, 0, 207);
    arraysFail = true;
    const bool growing = table.Insert({}, 207, 207) != nullptr;
    arraysFail = false;
    EXPECT_FALSE(growing);
    EXPECT_EQ(table.GetCount(), 207U);
    EXPECT_EQ(table.Find(207), nullptr);
    EXPECT_EQ(*table.Find(206), 206U);
}

TEST(LumHash, TakesALongChainApartWithoutRecursion) {
    Table table(1, 80, 0);
    Fill(table, 0, 1000000);
    EXPECT_EQ(table.GetCount(), 1000000U);
}

}  // namespace
