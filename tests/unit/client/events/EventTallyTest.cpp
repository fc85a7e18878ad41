#include <gtest/gtest.h>

#include "client/events/EventTally.h"
#include "support/TimeZone.h"

namespace {

constexpr int64_t kHour = 3600;

TEST(EventTally, CutsDaysWhereTheClockChanges) {
    const TimeZone zone("Europe/Berlin");
    // 2026-03-29, the day of 23 hours, and the days around it.
    const std::vector<int64_t> days = PeriodStarts(TallyPeriod::kDay, 1774695600, 1774695600 + 60 * kHour);
    ASSERT_GE(days.size(), 3U);
    EXPECT_EQ(days[1] - days[0], 24 * kHour);
    EXPECT_EQ(days[2] - days[1], 23 * kHour);
}

TEST(EventTally, CutsHoursOnTheHour) {
    const TimeZone zone("UTC");
    EXPECT_EQ(PeriodStarts(TallyPeriod::kHour, 2 * kHour + 5, 4 * kHour),
              (std::vector<int64_t>{2 * kHour, 3 * kHour, 4 * kHour}));
    EXPECT_EQ(PeriodStarts(TallyPeriod::kHour, 7, 7), std::vector<int64_t>{0});
}

TEST(EventTally, CountsByPeriodAndValue) {
    EventTally tally({0, 10, 20});
    tally.Add(20, "a");
    tally.Add(0, "a");
    tally.Add(9, "b");
    tally.Add(25, "a");
    EXPECT_EQ(tally.GetTotal(), 4U);
    EXPECT_EQ(tally.GetCounts(), (std::vector<uint64_t>{2, 0, 2}));
    const std::vector<EventTally::Series> series = tally.GetSeries(5);
    ASSERT_EQ(series.size(), 2U);
    EXPECT_EQ(series[0].value, "a");
    EXPECT_EQ(series[0].counts, (std::vector<uint64_t>{1, 0, 2}));
    EXPECT_EQ(series[1].total, 1U);
}

TEST(EventTally, CountsWhatIsOutsideAtTheNearerEnd) {
    EventTally tally({10, 20});
    tally.Add(25, "");
    tally.Add(5, "");
    tally.Add(15, "");
    EXPECT_EQ(tally.GetCounts(), (std::vector<uint64_t>{2, 1}));
}

TEST(EventTally, PutsRareValuesTogether) {
    EventTally tally({0});
    for (const char* value : {"a", "a", "a", "b", "b", "c", "d"}) {
        tally.Add(1, value);
    }
    const std::vector<EventTally::Series> series = tally.GetSeries(2);
    ASSERT_EQ(series.size(), 3U);
    EXPECT_EQ(series[2].value, kOtherValues);
    EXPECT_EQ(series[2].total, 2U);
}

TEST(EventTally, TellsNoMoreValuesApartThanItsMemoryIsMeantFor) {
    EventTally tally({0});
    for (std::size_t i = 0; i < EventTally::kMaxValues + 7; ++i) {
        tally.Add(0, std::to_string(i));
    }
    const std::vector<EventTally::Series> series = tally.GetSeries(EventTally::kMaxValues);
    EXPECT_EQ(series.size(), EventTally::kMaxValues + 1);
    EXPECT_EQ(series.back().total, 7U);
}

}  // namespace
