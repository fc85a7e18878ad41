#include <cstdint>

#include <gtest/gtest.h>

#include "machine/source/RecordId.h"

namespace {

TEST(RecordId, IsTheSameForTheSameText) {
    EXPECT_EQ(RecordId("a line"), RecordId("a line"));
    EXPECT_NE(RecordId("a line"), RecordId("another line"));
    EXPECT_NE(RecordId(""), 0U);
}

TEST(RecordId, ComesBackFromItsText) {
    EXPECT_EQ(RecordText(255), "00000000000000ff");
    EXPECT_EQ(ParseRecordText("00000000000000ff"), 255U);
    EXPECT_EQ(ParseRecordText(RecordText(UINT64_MAX)), UINT64_MAX);
    for (const char* const none :
         {"", "ff", "00000000000000fg", "000000000000000-1", "00000000000000000ff", "xxxxxxxxxxxxxxxx"}) {
        EXPECT_EQ(ParseRecordText(none), 0U) << none;
    }
}

}  // namespace
