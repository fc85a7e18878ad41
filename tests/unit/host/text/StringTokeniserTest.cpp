#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/text/StringTokeniser.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> Split(const LumString& text, const LumString& delimiters, uint32_t flags) {
    StringTokeniser tokeniser(text, delimiters, flags);
    std::vector<std::string> tokens;
    LumString token;
    while (tokeniser.GetNextToken(token) != 0) {
        tokens.emplace_back(token.View());
    }
    return tokens;
}

constexpr uint32_t kKeep = StringTokeniser::kKeepEmptyTokens;

}  // namespace

TEST(StringTokeniser, SplitsAtEveryCharacterOfTheSet) {
    EXPECT_THAT(Split("MODEL/PARAMS/PARAM@0/NAME", "/", 0),
                ElementsAre("MODEL", "PARAMS", "PARAM@0", "NAME"));
    EXPECT_THAT(Split("a,b;c", ";,", 0), ElementsAre("a", "b", "c"));
}

TEST(StringTokeniser, WithoutFlagsNoTokenIsEmpty) {
    EXPECT_THAT(Split("//a///b/", "/", 0), ElementsAre("a", "b"));
    EXPECT_THAT(Split("///", "/", 0), IsEmpty());
    EXPECT_THAT(Split("", "/", 0), IsEmpty());
}

TEST(StringTokeniser, KeepsEmptyTokensWhereAskedTo) {
    EXPECT_THAT(Split("/a//b/", "/", kKeep), ElementsAre("", "a", "", "b", ""));
    EXPECT_THAT(Split("/", "/", kKeep), ElementsAre("", ""));
    EXPECT_THAT(Split("", "/", kKeep), ElementsAre(""));
    EXPECT_THAT(Split("a", "/", kKeep), ElementsAre("a"));
}

TEST(StringTokeniser, WithoutDelimitersTheTextIsOneToken) {
    EXPECT_THAT(Split("a/b", "", 0), ElementsAre("a/b"));
    EXPECT_THAT(Split("a/b", "", kKeep), ElementsAre("a/b"));
}

TEST(StringTokeniser, LeavesTheOutputUntouchedAfterTheLastToken) {
    for (const uint32_t flags : {0U, kKeep}) {
        StringTokeniser tokeniser("a", "/", flags);
        LumString token;
        EXPECT_EQ(tokeniser.GetNextToken(token), 1U);
        token = "kept";
        EXPECT_EQ(tokeniser.GetNextToken(token), 0U);
        EXPECT_EQ(tokeniser.GetNextToken(token), 0U);
        EXPECT_EQ(token, "kept");
    }
}

TEST(StringTokeniser, OutlivesTheTextsThatItWasGiven) {
    auto text = std::make_unique<LumString>("one two");
    StringTokeniser tokeniser(*text, LumString(" "), 0);
    text.reset();
    LumString token;
    EXPECT_EQ(tokeniser.GetNextToken(token), 1U);
    EXPECT_EQ(token, "one");
}
