#include <string>

#include <gtest/gtest.h>

#include "client/events/EventPage.h"

namespace {

constexpr char kAnswer[] =
    R"({"status":0,"container":{"Result":{"EventCount":9,"EventDate":[5,7],"EventDeviceId":[1,2],)"
    R"("Text":["a \"b\"","c"],"Real":[1.50,-2e3],"Flag":[true,null],"Late":[null,3]}},"messages":["m"]})";

TEST(EventPage, ReadsColumnsOfEveryKind) {
    EventPage page;
    ASSERT_TRUE(page.Parse(kAnswer));
    EXPECT_EQ(page.GetRowCount(), 2U);
    EXPECT_EQ(page.GetEventCount(), 9);
    EXPECT_EQ(page.GetDate(0), 5);
    EXPECT_EQ(page.GetDate(1), 7);
    EXPECT_EQ(page.GetValue("Text", 0).text, "a \"b\"");
    EXPECT_EQ(page.GetValue("Real", 0).text, "1.50") << "as it was spelled";
    EXPECT_EQ(page.GetValue("Real", 1).text, "-2e3");
    EXPECT_EQ(page.GetValue("Flag", 0).kind, EventValue::Kind::kBool);
    EXPECT_EQ(page.GetValue("Flag", 1).kind, EventValue::Kind::kNone);
    EXPECT_EQ(page.GetValue("Late", 0).kind, EventValue::Kind::kNone);
    EXPECT_EQ(page.GetValue("Late", 1).number, 3);
    EXPECT_EQ(page.GetValue("Missing", 0).kind, EventValue::Kind::kNone);
}

TEST(EventPage, IsEmptyAfterAnAnswerThatIsNone) {
    EventPage page;
    ASSERT_TRUE(page.Parse(kAnswer));
    for (const char* text :
         {"", "{", "[]", R"({"status":0,"container":{}})", R"({"status":13,"container":{}})",
          R"({"status":1,"container":{"Result":{"EventCount":1,"EventDate":[1]}}})"}) {
        EXPECT_FALSE(page.Parse(text)) << text;
        EXPECT_EQ(page.GetRowCount(), 0U) << text;
    }
}

/// All cells of a page, each with its kind.
std::string CellsOf(const EventPage& page) {
    std::string cells = std::to_string(page.GetEventCount()) + ":";
    for (std::size_t row = 0; row < page.GetRowCount(); ++row) {
        for (const char* const name : {"EventDate", "A", "B", "C"}) {
            const EventValue value = page.GetValue(name, row);
            cells += " " + std::to_string(static_cast<int>(value.kind)) + "," + std::to_string(value.number) +
                     "," + std::string(value.text);
        }
    }
    return cells;
}

/// What the scanner takes and what the library reads must be the same. A blank at the end leaves the answer
/// to the library.
TEST(EventPageScanner, ReadsWhatTheLibraryReads) {
    const std::string begin = R"({"status":0,"container":{"Result":{"EventCount":3,"EventDate":[1,2])";
    for (const char* const columns :
         {"", R"(,"A":["","x y"],"B":[-5,4294967295],"C":[true,false])", R"(,"A":[null,null],"B":[null,7])",
          R"(,"A":[1.0,-2.5e-7],"B":[0.0,1e300],"C":["gr\u00fcn","gr\xc3\xbcn"])",
          R"(,"A":["a]","b,\"c"],"B":["}}}","{"],"C":["\\","\n"])",
          ",\"A\":[\"gr\xc3\xbcn\",\"\xe2\x82\xac\"]"}) {
        for (const char* const end : {"}}}", R"(}},"messages":[]})", R"(}},"messages":["m"]})"}) {
            EventPage scanned;
            EventPage read;
            const std::string answer = begin + columns + end;
            ASSERT_EQ(scanned.Parse(answer), read.Parse(answer + " ")) << answer;
            EXPECT_EQ(CellsOf(scanned), CellsOf(read)) << answer;
        }
    }
}

TEST(EventPageScanner, RefusesWhatTheLibraryRefuses) {
    const std::string begin = R"({"status":0,"container":{"Result":{"EventCount":1,"A":)";
    for (const char* const rest :
         {"[1]}}", "[1]}}}x", "[1}}}", "[nan]}}}", "[inf]}}}", "[-]}}}", "[1e]}}}", "[\"a]}}}", "[\"\n\"]}}}",
          "[tru]}}}", "[1,]}}}", "[1]]}}}", R"([1]}},"messages":[})"}) {
        EventPage page;
        EXPECT_FALSE(page.Parse(begin + rest)) << rest;
        EXPECT_EQ(page.GetRowCount(), 0U) << rest;
    }
}

TEST(EventPage, ReadsATableWithoutRows) {
    EventPage page;
    ASSERT_TRUE(page.Parse(R"({"status":0,"container":{"Result":{"EventCount":0}}})"));
    EXPECT_EQ(page.GetRowCount(), 0U);
}

TEST(EventPage, TakesRowsOfAnotherPageOver) {
    EventPage page;
    EventPage kept;
    ASSERT_TRUE(page.Parse(kAnswer));
    kept.AppendRow(page, 1);
    kept.AppendRow(page, 0);
    page.Clear();
    ASSERT_EQ(kept.GetRowCount(), 2U);
    EXPECT_EQ(kept.GetDate(0), 7);
    EXPECT_EQ(kept.GetValue("Text", 1).text, "a \"b\"");
    EXPECT_EQ(kept.GetValue("Late", 0).number, 3);
    EXPECT_EQ(kept.GetValue("Late", 1).kind, EventValue::Kind::kNone);
}

}  // namespace
