#include <string>

#include <gtest/gtest.h>

#include "client/text/TimeText.h"
#include "support/TimeZone.h"

namespace {

/// The time that `text` means, or -1 where it is none.
int64_t Parsed(std::string_view text) {
    int32_t seconds = 77;
    const bool done = ParseTime(text, seconds);
    EXPECT_TRUE(done || seconds == 77) << text;
    return done ? seconds : -1;
}

TEST(TimeTextParse, TakesSecondsSince1970) {
    EXPECT_EQ(Parsed("0"), 0);
    EXPECT_EQ(Parsed("1772439247"), 1772439247);
    EXPECT_EQ(Parsed("2147483647"), 2147483647);
    EXPECT_EQ(Parsed("-2"), -2);
    EXPECT_EQ(Parsed("2147483648"), -1);
    EXPECT_EQ(Parsed("99999999999999999999"), -1);
}

TEST(TimeTextParse, TakesIso8601WithAZone) {
    EXPECT_EQ(Parsed("2026-11-21T01:10:25Z"), 1795223425);
    EXPECT_EQ(Parsed("2026-11-21T02:10:25+01:00"), 1795223425);
    EXPECT_EQ(Parsed("2026-11-21T02:10:25+01"), 1795223425);
    EXPECT_EQ(Parsed("2026-11-20T21:40:25-0330"), 1795223425);
    EXPECT_EQ(Parsed("2026-11-21 01:10:25.987Z"), 1795223425);
}

TEST(TimeTextParse, TakesIso8601OfTheLocalZone) {
    const TimeZone zone("Europe/Berlin");
    EXPECT_EQ(Parsed("2026-11-21T02:10:25"), 1795223425);
    EXPECT_EQ(Parsed("2026-11-21T02:10"), 1795223400);
    EXPECT_EQ(Parsed("2026-11-21"), 1795215600);
    EXPECT_EQ(Parsed("2026-07-01T00:00"), 1782856800) << "in summer";
}

TEST(TimeTextParse, TakesNothingElse) {
    for (const char* const text : {"",
                                   "tomorrow",
                                   "12x",
                                   "2026-11",
                                   "2026-13-01",
                                   "2026-02-30",
                                   "2026-00-10",
                                   "2026-1-1",
                                   "2026-11-21T",
                                   "2026-11-21T24:00",
                                   "2026-11-21T12:60",
                                   "2026-11-21T12:00:60",
                                   "2026-11-21T12",
                                   "2026-11-21T12:00:",
                                   "2026-11-21T12:00:00.",
                                   "2026-11-21T12:00Zx",
                                   "2026-11-21T12:00+",
                                   "2026-11-21T12:00+1",
                                   "2026-11-21T12:00+24:00",
                                   "2026-11-21T12:00+01:60",
                                   "2026-11-21T12:00+01:0",
                                   "2026-11-21x",
                                   "2039-01-01T00:00Z",
                                   "1900-01-01T00:00Z"}) {
        EXPECT_EQ(Parsed(text), -1) << text;
    }
}

TEST(TimeTextFormat, NamesTheOffset) {
    const TimeZone zone("Europe/Berlin");
    EXPECT_EQ(FormatLocalTime(1795223425), "2026-11-21T02:10:25+01:00");
    EXPECT_EQ(FormatLocalTime(1782856800), "2026-07-01T00:00:00+02:00");
}

TEST(TimeTextFormat, KnowsZonesWestAndOfHalfAnHour) {
    const TimeZone zone("America/St_Johns");
    EXPECT_EQ(FormatLocalTime(1795223425), "2026-11-20T21:40:25-03:30");
}

TEST(TimeTextFormat, GivesTheNumberWhereThereIsNoCalendar) {
    EXPECT_EQ(FormatLocalTime(INT64_MAX), "9223372036854775807");
}

TEST(TimeTextMoment, ReadsMomentsAsPeopleNameThem) {
    const TimeZone zone("Europe/Berlin");
    constexpr int64_t now = 1774819800;  // 2026-03-29T23:30:00+02:00, after the change to summer time
    int32_t seconds = 0;
    ASSERT_TRUE(ParseMoment("now", now, seconds));
    EXPECT_EQ(seconds, now);
    ASSERT_TRUE(ParseMoment("90s", now, seconds));
    EXPECT_EQ(seconds, now - 90);
    ASSERT_TRUE(ParseMoment("2h", now, seconds));
    EXPECT_EQ(seconds, now - 7200);
    ASSERT_TRUE(ParseMoment("1w", now, seconds));
    EXPECT_EQ(seconds, now - 604800);
    ASSERT_TRUE(ParseMoment("today", now, seconds));
    EXPECT_EQ(FormatLocalTime(seconds), "2026-03-29T00:00:00+01:00");
    ASSERT_TRUE(ParseMoment("yesterday", now, seconds));
    EXPECT_EQ(FormatLocalTime(seconds), "2026-03-28T00:00:00+01:00");
    ASSERT_TRUE(ParseMoment("2026-03-01", now, seconds));
    EXPECT_EQ(FormatLocalTime(seconds), "2026-03-01T00:00:00+01:00");
}

TEST(TimeTextMoment, RefusesSpansThatAreNone) {
    int32_t seconds = 5;
    for (const char* text : {"", "h", "-1h", "1.5h", "1x", "h1", "99999999999w", "tomorrow", "1 h"}) {
        EXPECT_FALSE(ParseMoment(text, 1774819800, seconds)) << text;
    }
    EXPECT_EQ(seconds, 5);
}

TEST(TimeText, TakesAMomentBeyondTheCalendarForAStart) {
    EXPECT_EQ(StartOfLocalDay(INT64_MAX), INT64_MAX);
    EXPECT_EQ(StartOfLocalHour(INT64_MAX), INT64_MAX);
}

}  // namespace
