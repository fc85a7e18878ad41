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
