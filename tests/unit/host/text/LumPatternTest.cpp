#include <string>

#include <gtest/gtest.h>

#include "host/text/LumPattern.h"

namespace {

TEST(LumPattern, KnowsStarsAndQuestionMarks) {
    struct Case {
        const char* text;
        const char* pattern;
        bool matches;
    };
    const Case cases[] = {
        {"Logon.xml", "*.xml", true},
        {".xml", "*.xml", true},
        {"Logon.xmlx", "*.xml", false},
        {"Logon", "*.xml", false},
        {"x.xml.xml", "*.xml", true},
        {"", "", true},
        {"", "*", true},
        {"", "?", false},
        {"a", "", false},
        {"abc", "a?c", true},
        {"ac", "a?c", false},
        {"abc", "abc", true},
        {"abc", "ab", false},
        {"ab", "abc", false},
        {"aXbXc", "a*b*c", true},
        {"aXbX", "a*b*c", false},
        {"abab", "*ab", true},
        {"mississippi", "m*iss*p?", true},
        {"a", "**a**", true},
        {"a*b", "a*b", true},
        {"a.b", "a?b", true},
        {"[a]", "[a]", true},
        {"a", "[a]", false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(MatchPattern(c.text, c.pattern, false), c.matches) << c.text << ' ' << c.pattern;
    }
}

TEST(LumPattern, MindsLetterCaseUnlessToldNotTo) {
    EXPECT_FALSE(MatchPattern("LOGON.XML", "*.xml", false));
    EXPECT_TRUE(MatchPattern("LOGON.XML", "*.xml", true));
    EXPECT_TRUE(MatchPattern("a", "A", true));
    EXPECT_FALSE(MatchPattern("@", "`", true)) << "letters alone are folded";
}

TEST(LumPattern, TakesNoLongerForManyStars) {
    const LumString text(std::string(5000, 'a'));
    std::string pattern;
    for (int i = 0; i < 50; ++i) {
        pattern += "a*";
    }
    EXPECT_FALSE(MatchPattern(text, LumString(pattern + "b"), false));
}

}  // namespace
