#include <string>

#include <gtest/gtest.h>

#include "machine/source/FieldText.h"

namespace {

std::string Cleaned(std::string_view raw) {
    return FieldText(raw).GetString();
}

TEST(FieldText, PlainTextStaysAsItIs) {
    EXPECT_EQ(Cleaned(""), "");
    EXPECT_EQ(Cleaned("libfoo2 1:2.0~rc1-1 äöü €"), "libfoo2 1:2.0~rc1-1 äöü €");
}

TEST(FieldText, ControlCharactersShowAsReplaced) {
    EXPECT_EQ(Cleaned(std::string_view("a\0b", 3)), "a\uFFFDb");
    EXPECT_EQ(Cleaned("a\nb\x1b[31m\x7f\xc2\x85"), "a\uFFFDb\uFFFD[31m\uFFFD\uFFFD");
}

TEST(FieldText, MarksThatTurnTextRoundShowAsReplaced) {
    EXPECT_EQ(Cleaned("\u202Etoor\u2066\u200F"), "\uFFFDtoor\uFFFD\uFFFD");
}

TEST(FieldText, BytesThatAreNotUtf8ShowAsReplaced) {
    EXPECT_EQ(Cleaned("a\xff\xc0\xaf"), "a\uFFFD\uFFFD\uFFFD");
}

TEST(FieldText, LongTextIsCutWithAMark) {
    EXPECT_EQ(Cleaned(std::string(kMaxFieldCharacters, 'x')), std::string(kMaxFieldCharacters, 'x'));
    EXPECT_EQ(Cleaned(std::string(1 << 20, 'x')), std::string(kMaxFieldCharacters, 'x') + "…");
}

TEST(FieldTextTime, AMomentFromAWrongClockBecomesNow) {
    constexpr std::time_t kNow = 1'800'000'000;
    EXPECT_EQ(FieldTime(1'700'000'000, kNow), 1'700'000'000);
    EXPECT_EQ(FieldTime(0, kNow), 0);
    EXPECT_EQ(FieldTime(-1, kNow), kNow);
    EXPECT_EQ(FieldTime(kNow + 86400, kNow), kNow + 86400);
    EXPECT_EQ(FieldTime(kNow + 86401, kNow), kNow);
    EXPECT_EQ(FieldTime(253'000'000'000, kNow), kNow);
}

}  // namespace
