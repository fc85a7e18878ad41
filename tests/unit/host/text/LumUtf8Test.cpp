#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/text/LumUtf8.h"

namespace {

std::u32string Decode(std::string_view text) {
    std::u32string characters;
    for (std::size_t at = 0; at < text.size();) {
        characters += LumNextUtf8(text, at);
    }
    return characters;
}

std::string Encode(char32_t character) {
    std::string out = "x";
    LumAppendUtf8(out, character);
    return out.substr(1);
}

}  // namespace

TEST(LumUtf8, EveryCharacterSurvivesTheRoundTrip) {
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF) {
            continue;
        }
        const std::string bytes = Encode(c);
        std::size_t at = 0;
        ASSERT_EQ(LumNextUtf8(bytes, at), c);
        ASSERT_EQ(at, bytes.size());
        ASSERT_TRUE(LumIsUtf8(bytes));
    }
}

TEST(LumUtf8, WhatIsNoCharacterIsWrittenAsTheReplacement) {
    for (const char32_t c : {char32_t{0xD800}, char32_t{0xDFFF}, char32_t{0x110000}, char32_t{0xFFFFFFFF}}) {
        EXPECT_EQ(Encode(c), "\ufffd");
    }
}

TEST(LumUtf8, EachByteOfABrokenSequenceIsSkippedAlone) {
    EXPECT_EQ(Decode("a\x80z"), U"a\ufffdz") << "a continuation without a start";
    EXPECT_EQ(Decode("\xC0\x80"), U"\ufffd\ufffd") << "overlong in two bytes";
    EXPECT_EQ(Decode("\xE0\x9F\xBF"), U"\ufffd\ufffd\ufffd") << "overlong in three bytes";
    EXPECT_EQ(Decode("\xF0\x8F\xBF\xBF"), U"\ufffd\ufffd\ufffd\ufffd") << "overlong in four bytes";
    EXPECT_EQ(Decode("\xED\xA0\x80"), U"\ufffd\ufffd\ufffd") << "a surrogate";
    EXPECT_EQ(Decode("\xF4\x90\x80\x80"), U"\ufffd\ufffd\ufffd\ufffd") << "above the last character";
    EXPECT_EQ(Decode("\xF8\x88\x80\x80\x80"), U"\ufffd\ufffd\ufffd\ufffd\ufffd");
    EXPECT_EQ(Decode("\xE2\x82"), U"\ufffd\ufffd") << "cut off";
    EXPECT_EQ(Decode("\xE2\x28\xA1"), U"\ufffd(\ufffd") << "what follows is not swallowed";
}

TEST(LumUtf8, TellsWellFormedTextFromTheRest) {
    EXPECT_TRUE(LumIsUtf8(""));
    EXPECT_TRUE(LumIsUtf8(std::string_view("a\0b", 3)));
    EXPECT_TRUE(LumIsUtf8("M\u00fcller \u20ac \U0001F600 \ufffd"));
    for (const char* text : {"\xFF", "a\xC3", "\xC3(", "\xED\xBF\xBF", "\xC1\xBF", "ok\xF5\x80\x80\x80"}) {
        EXPECT_FALSE(LumIsUtf8(text));
    }
}
