#include <cwchar>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "host/text/LumString.h"

namespace {

constexpr std::string_view kWithNull("a\0b", 3);

}  // namespace

TEST(LumString, IsMadeOfTextsOfEveryKind) {
    const char* const none = nullptr;
    EXPECT_TRUE(LumString().IsEmpty());
    EXPECT_TRUE(LumString(none).IsEmpty());
    EXPECT_EQ(LumString("abc").GetLength(), 3U);
    EXPECT_EQ(LumString(kWithNull).View(), kWithNull);
    EXPECT_EQ(LumString(std::string(kWithNull)).View(), kWithNull);
}

TEST(LumString, CopiesAreIndependent) {
    LumString first = "one";
    LumString second = first;
    second += " two";
    EXPECT_EQ(first, "one");
    EXPECT_EQ(second, "one two");
    first = second;
    second.Clear();
    EXPECT_EQ(first, "one two");
    EXPECT_TRUE(second.IsEmpty());
}

TEST(LumString, AMovedTextIsEmpty) {
    LumString first = "a text that is too long to lie inside the object itself";
    const LumString second(std::move(first));
    EXPECT_TRUE(first.IsEmpty());  // NOLINT(bugprone-use-after-move): the state is promised
    LumString third = "old";
    first = second;
    third = std::move(first);
    EXPECT_TRUE(first.IsEmpty());  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(third, second);
}

TEST(LumString, IsAssignedFromItselfUnharmed) {
    LumString text = "text";
    LumString& same = text;
    text = same;
    EXPECT_EQ(text, "text");
    text = std::move(same);
    EXPECT_EQ(text, "text");
    text = text.GetString();
    EXPECT_EQ(text, "text");
    text = text.GetString() + 1;
    EXPECT_EQ(text, "ext");
}

TEST(LumString, TakesTextAndWideText) {
    LumString text = "old";
    text.SetTo("new");
    EXPECT_EQ(text, "new");
    text.SetTo(LumString("other"));
    EXPECT_EQ(text, "other");
    text.SetToTCHAR(L"M\u00fcller \u20ac \U0001F600");
    EXPECT_EQ(text, "M\u00fcller \u20ac \U0001F600");
    const wchar_t surrogate[] = {0xD800, L'x', 0};
    text.SetToTCHAR(surrogate);
    EXPECT_EQ(text, "\ufffdx");
    text.SetToTCHAR(nullptr);
    EXPECT_TRUE(text.IsEmpty());
    const char* const none = nullptr;
    text = "x";
    text = none;
    EXPECT_TRUE(text.IsEmpty());
}

TEST(LumString, ShowsItsTextAsWideCharacters) {
    LumString text = "M\u00fcller \U0001F600";
    EXPECT_STREQ(text.GetTCHAR(), L"M\u00fcller \U0001F600");
    EXPECT_STREQ(text.GetTCHAR(), L"M\u00fcller \U0001F600");
    EXPECT_STREQ(LumString("a\xff").GetTCHAR(), L"a\ufffd");
    EXPECT_STREQ(LumString().GetTCHAR(), L"");
}

TEST(LumString, TheWideViewFollowsEveryChange) {
    LumString text = "a";
    const auto wide = [&text] { return std::wstring(text.GetTCHAR()); };
    EXPECT_EQ(wide(), L"a");
    text += "b";
    EXPECT_EQ(wide(), L"ab");
    text.Insert(0, "x");
    EXPECT_EQ(wide(), L"xab");
    text.ReplaceFirst("x", "y");
    EXPECT_EQ(wide(), L"yab");
    text.ReplaceAll("a", "c");
    EXPECT_EQ(wide(), L"ycb");
    text.Printf(" %d ", 1);
    EXPECT_EQ(wide(), L" 1 ");
    text.Trim();
    EXPECT_EQ(wide(), L"1");
    text = LumString("moved");
    EXPECT_EQ(wide(), L"moved");
    const LumString other = "copied";
    text = other;
    EXPECT_EQ(wide(), L"copied");
    text.SetToTCHAR(L"wide");
    EXPECT_EQ(wide(), L"wide");
    text = "assigned";
    EXPECT_EQ(wide(), L"assigned");
    const LumString taken = std::move(text);
    EXPECT_EQ(wide(), L"");
    EXPECT_STREQ(taken.GetTCHAR(), L"assigned");
    text.Clear();
    EXPECT_EQ(wide(), L"");
}

TEST(LumString, AppendsWholeTextsAndParts) {
    LumString text = "a";
    text.Append(LumString("bcd"), LumString::kWholeText, LumEncoding::kUtf8);
    text.Append("efg", 2);
    text.Append("h", 100);
    text.Append(LumString("ijk"), 1);
    text.Append(kWithNull);
    const char* const none = nullptr;
    text.Append(none);
    EXPECT_EQ(text.View(), std::string("abcdefhi") + std::string(kWithNull));
    LumString twice = "ab";
    twice += twice;
    twice.Append(twice.View());
    EXPECT_EQ(twice, "abababab");
}

TEST(LumString, AddsIntoANewText) {
    const LumString first = "a";
    EXPECT_EQ(first + "b" + LumString("c"), "abc");
    EXPECT_EQ(first, "a");
}

TEST(LumString, FormatsEvenFromItself) {
    LumString text = "x";
    text.Printf("%S-%S-%d", text, text, 5);
    EXPECT_EQ(text, "x-x-5");
}

TEST(LumString, GivesPartsOfItself) {
    const LumString text = "abcdef";
    EXPECT_EQ(text.GetSubstring(1, 2), "bc");
    EXPECT_EQ(text.GetSubstring(4, 100), "ef");
    EXPECT_EQ(text.GetSubstring(0, LumString::kNotFound), "abcdef");
    EXPECT_EQ(text.GetSubstring(6, 1), "");
    EXPECT_EQ(text.GetSubstring(100, 1), "");
}

TEST(LumString, FindsTheFirstOccurrence) {
    const LumString text = "abcABCabc";
    EXPECT_EQ(text.FindFirst("abc"), 0U);
    EXPECT_EQ(text.FindFirst("abc", 1), 6U);
    EXPECT_EQ(text.FindFirst("abc", 1, true), 3U);
    EXPECT_EQ(text.FindFirst("aBc", 0, false), LumString::kNotFound);
    EXPECT_EQ(text.FindFirst("x", 0, true), LumString::kNotFound);
    for (const bool ignoreCase : {false, true}) {
        EXPECT_EQ(text.FindFirst("", 3, ignoreCase), 3U);
        EXPECT_EQ(text.FindFirst("", 9, ignoreCase), 9U);
        EXPECT_EQ(text.FindFirst("", 10, ignoreCase), LumString::kNotFound);
        EXPECT_EQ(text.FindFirst("abc", 100, ignoreCase), LumString::kNotFound);
    }
    EXPECT_EQ(LumString("\u00c4").FindFirst("\u00e4", 0, true), LumString::kNotFound) << "A to Z alone";
}

TEST(LumString, InsertsBeforeAPosition) {
    LumString text = "ac";
    text.Insert(1, "b");
    text.Insert(0, "<");
    text.Insert(100, ">");
    EXPECT_EQ(text, "<abc>");
    text.Insert(1, text);
    EXPECT_EQ(text, "<<abc>abc>");
}

TEST(LumString, ReplacesTheFirstOccurrence) {
    LumString text = "one two One";
    EXPECT_TRUE(text.ReplaceFirst("ONE", "1", true));
    EXPECT_EQ(text, "1 two One");
    EXPECT_FALSE(text.ReplaceFirst("one", "1"));
    EXPECT_FALSE(text.ReplaceFirst("", "x"));
    EXPECT_TRUE(text.ReplaceFirst(text, text));
    EXPECT_EQ(text, "1 two One");
}

TEST(LumString, ReplacesEveryOccurrenceAndNeverInsideAReplacement) {
    LumString text = "it's o'clock '";
    EXPECT_EQ(text.ReplaceAll("'", "''"), 3U);
    EXPECT_EQ(text, "it''s o''clock ''");
    LumString overlapping = "aaaaa";
    EXPECT_EQ(overlapping.ReplaceAll("aa", "b"), 2U);
    EXPECT_EQ(overlapping, "bba");
    EXPECT_EQ(overlapping.ReplaceAll("B", "", true), 2U);
    EXPECT_EQ(overlapping, "a");
    EXPECT_EQ(overlapping.ReplaceAll("x", "y"), 0U);
    EXPECT_EQ(overlapping.ReplaceAll("", "y"), 0U);
    EXPECT_EQ(overlapping.ReplaceAll(overlapping, "zz"), 1U);
    EXPECT_EQ(overlapping, "zz");
}

TEST(LumString, TrimsBothEnds) {
    const std::pair<const char*, const char*> cases[] = {
        {" \t\r\na b\n ", "a b"}, {"", ""}, {" \t", ""}, {"a", "a"}, {"\v", "\v"}};
    for (const auto& [from, to] : cases) {
        LumString text = from;
        text.Trim();
        EXPECT_EQ(text, to);
    }
}

TEST(LumString, ReadsAWholeNumberAtItsStart) {
    const std::pair<const char*, int32_t> cases[] = {{"42", 42},
                                                     {"  -7 apples", -7},
                                                     {"+5", 5},
                                                     {"", 0},
                                                     {"x", 0},
                                                     {"-", 0},
                                                     {"- 5", 0},
                                                     {"0x10", 0},
                                                     {"1.9", 1},
                                                     {"2147483647", INT32_MAX},
                                                     {"2147483648", INT32_MAX},
                                                     {"-2147483648", INT32_MIN},
                                                     {"-2147483649", INT32_MIN},
                                                     {"99999999999999999999999999", INT32_MAX},
                                                     {"-99999999999999999999999999", INT32_MIN},
                                                     {"000000000000000000000012", 12},
                                                     {"--5", 0}};
    for (const auto& [text, number] : cases) {
        EXPECT_EQ(LumString(text).ToInt(), number) << text;
    }
}

TEST(LumString, ComparesBytes) {
    EXPECT_TRUE(LumString("a") == "a");
    EXPECT_TRUE(LumString("a") != "b");
    EXPECT_TRUE(LumString("a") == LumString("a"));
    EXPECT_FALSE(LumString(kWithNull) == "a");
    const char* const none = nullptr;
    EXPECT_TRUE(LumString() == none);
    EXPECT_TRUE(LumString("B") < LumString("a"));
    EXPECT_TRUE(LumString("a") < LumString("ab"));
    EXPECT_TRUE(LumString("z") < LumString("\u00e4")) << "bytes count as unsigned";
    EXPECT_FALSE(LumString("a") < LumString("a"));
    EXPECT_TRUE(LumString("Abc").IsEqualTo("aBC", false));
    EXPECT_FALSE(LumString("Abc").IsEqualTo("aBC", true));
    EXPECT_TRUE(LumString("Abc").IsEqualTo("Abc", true));
    EXPECT_FALSE(LumString("Abc").IsEqualTo("Abcd", false));
    EXPECT_FALSE(LumString("Abcd").IsEqualTo("Abc", false));
    EXPECT_FALSE(LumString("[").IsEqualTo("{", false)) << "letters alone are folded";
}
