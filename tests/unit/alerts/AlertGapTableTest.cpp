#include <string>

#include <gtest/gtest.h>
#include <malloc.h>

#include "alerts/AlertGapTable.h"

namespace {

TEST(AlertGapTable, HoldsBackUntilTheGapHasPassed) {
    AlertGapTable_t table;
    EXPECT_TRUE(table.LetThrough("disk-1", 0, 1000, 1));
    EXPECT_FALSE(table.LetThrough("disk-1", 0, 1059, 1));
    EXPECT_TRUE(table.LetThrough("disk-1", 0, 1060, 1)) << "exactly at the gap";
}

TEST(AlertGapTable, KeepsTheReferenceWhereAnAlertIsHeldBack) {
    AlertGapTable_t table;
    EXPECT_TRUE(table.LetThrough("disk-1", 0, 1000, 1));
    EXPECT_FALSE(table.LetThrough("disk-1", 0, 1059, 1));
    EXPECT_TRUE(table.LetThrough("disk-1", 0, 1061, 1)) << "two seconds after the one held back";
    EXPECT_FALSE(table.LetThrough("disk-1", 0, 1120, 1)) << "the one that passed is the reference now";
    EXPECT_TRUE(table.LetThrough("disk-1", 0, 1121, 1));
}

TEST(AlertGapTable, LetsEverythingThroughWithoutAGap) {
    AlertGapTable_t table;
    EXPECT_TRUE(table.LetThrough("disk-1", 0, 1000, 0));
    EXPECT_TRUE(table.LetThrough("disk-1", 0, 1000, 0));
}

TEST(AlertGapTable, HoldsBackWhatIsDatedBeforeItsReference) {
    AlertGapTable_t table;
    EXPECT_TRUE(table.LetThrough("disk-1", 0, 1000, 0));
    EXPECT_FALSE(table.LetThrough("disk-1", 0, 999, 0));
}

TEST(AlertGapTable, KeepsObjectsApart) {
    AlertGapTable_t table;
    EXPECT_TRUE(table.LetThrough("disk-1", 0, 1000, 1));
    EXPECT_TRUE(table.LetThrough("disk-1", 0xFFFFFFFF, 1000, 1));
    EXPECT_FALSE(table.LetThrough("disk-1", 0, 1001, 1));
    EXPECT_FALSE(table.LetThrough("disk-1", 0xFFFFFFFF, 1001, 1));
}

TEST(AlertGapTable, ComparesWithASumThatWraps) {
    AlertGapTable_t table;
    ASSERT_TRUE(table.LetThrough("disk-1", 0, 0xFFFFFFF0, 1));
    // The sum is 0x2C: below every time before the wrap, and a gap after it.
    EXPECT_FALSE(table.LetThrough("disk-1", 0, 0x2B, 1));
    EXPECT_TRUE(table.LetThrough("disk-1", 0, 0xFFFFFFF1, 1));
}

TEST(AlertGapTable, WrapsTheGapItself) {
    AlertGapTable_t table;
    // 71582789 minutes are 2^32 + 44 seconds.
    ASSERT_TRUE(table.LetThrough("disk-1", 0, 1000, 71582789));
    EXPECT_FALSE(table.LetThrough("disk-1", 0, 1043, 71582789));
    EXPECT_TRUE(table.LetThrough("disk-1", 0, 1044, 71582789));
}

TEST(AlertGapTable, TakesTextsOfOneHashForOne) {
    ASSERT_EQ(HashText("Error 20940-"), HashText("Error 24404-"));
    AlertGapTable_t table;
    EXPECT_TRUE(table.LetThrough("Error 20940-", 0, 1000, 1));
    EXPECT_FALSE(table.LetThrough("Error 24404-", 0, 1001, 1));
}

/// Always 0 under a sanitizer, whose allocator is another one.
std::size_t HeapBytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

TEST(AlertGapTable, RemembersAHundredThousandTextsInLittleMemory) {
    const std::size_t before = HeapBytes();
    AlertGapTable_t table;
    uint32_t passed = 0;
    for (uint32_t i = 0; i < 100000; ++i) {
        passed +=
            table.LetThrough(LumString("Failed to reach host " + std::to_string(i)), 0, 1000, 1) ? 1 : 0;
    }
    EXPECT_GT(passed, 99990U) << "all but texts of one hash";
    EXPECT_LT(HeapBytes() - before, std::size_t{30} << 20U);
    for (uint32_t i = 0; i < 100000; ++i) {
        ASSERT_FALSE(table.LetThrough(LumString("Failed to reach host " + std::to_string(i)), 0, 1001, 1))
            << i;
    }
}

}  // namespace
