#include <cstdint>
#include <ctime>
#include <limits>
#include <ostream>

#include <gtest/gtest.h>

#include "events/Period.h"
#include "support/TimeZone.h"

namespace {

struct Moment {
    const char* name;
    const char* zone;
    std::time_t time;
    Policy policy;
    std::time_t start;
};

std::ostream& operator<<(std::ostream& out, const Moment& moment) {
    return out << moment.name;
}

class PeriodTable : public testing::TestWithParam<Moment> {};

TEST_P(PeriodTable, StartsWhereTheLocalCalendarSays) {
    const Moment& moment = GetParam();
    const TimeZone zone(moment.zone);
    EXPECT_EQ(PeriodStart(moment.policy, static_cast<LumSeconds>(moment.time)), moment.start) << moment.zone;
}

constexpr const char* kBerlin = "Europe/Berlin";
constexpr const char* kNewYork = "America/New_York";
constexpr const char* kSaoPaulo = "America/Sao_Paulo";
constexpr const char* kKolkata = "Asia/Kolkata";
constexpr const char* kLordHowe = "Australia/Lord_Howe";

// All moments are written in UTC, so that no expectation goes through the conversion under test.
INSTANTIATE_TEST_SUITE_P(
    Utc, PeriodTable,
    testing::Values(
        Moment{"minute", "UTC", Utc(2026, 5, 6, 15, 30, 59), Policy::kMinutely, Utc(2026, 5, 6, 15, 30)},
        Moment{"start of a minute", "UTC", Utc(2026, 5, 6, 15, 31), Policy::kMinutely,
               Utc(2026, 5, 6, 15, 31)},
        Moment{"hour", "UTC", Utc(2026, 5, 6, 15, 59, 59), Policy::kHourly, Utc(2026, 5, 6, 15)},
        Moment{"start of an hour", "UTC", Utc(2026, 5, 6, 16), Policy::kHourly, Utc(2026, 5, 6, 16)},
        Moment{"day", "UTC", Utc(2026, 5, 6, 23, 59, 59), Policy::kDaily, Utc(2026, 5, 6)},
        Moment{"midnight", "UTC", Utc(2026, 5, 7), Policy::kDaily, Utc(2026, 5, 7)},
        Moment{"Sunday is the first day of a week", "UTC", Utc(2026, 5, 3), Policy::kWeekly, Utc(2026, 5, 3)},
        Moment{"Saturday is the last day of a week", "UTC", Utc(2026, 5, 9, 23, 59, 59), Policy::kWeekly,
               Utc(2026, 5, 3)},
        Moment{"Tuesday the 2nd belongs to a week of the month before", "UTC", Utc(2026, 6, 2, 9),
               Policy::kWeekly, Utc(2026, 5, 31)},
        Moment{"week across a year's end", "UTC", Utc(2027, 1, 1, 9), Policy::kWeekly, Utc(2026, 12, 27)},
        Moment{"month", "UTC", Utc(2026, 4, 30, 23, 59, 59), Policy::kMonthly, Utc(2026, 4, 1)},
        Moment{"start of a month", "UTC", Utc(2026, 5, 1), Policy::kMonthly, Utc(2026, 5, 1)},
        Moment{"leap day", "UTC", Utc(2028, 2, 29, 12), Policy::kDaily, Utc(2028, 2, 29)},
        Moment{"month of a leap day", "UTC", Utc(2028, 2, 29, 12), Policy::kMonthly, Utc(2028, 2, 1)},
        Moment{"week from a leap day on", "UTC", Utc(2032, 3, 3, 12), Policy::kWeekly, Utc(2032, 2, 29)},
        Moment{"year", "UTC", Utc(2026, 12, 31, 23, 59, 59), Policy::kYearly, Utc(2026, 1, 1)},
        Moment{"start of a year", "UTC", Utc(2027, 1, 1), Policy::kYearly, Utc(2027, 1, 1)},
        Moment{"year of a leap day", "UTC", Utc(2028, 2, 29, 12), Policy::kYearly, Utc(2028, 1, 1)},
        Moment{"never", "UTC", Utc(2026, 5, 6, 15, 30, 59), Policy::kNever, Utc(2026, 5, 6, 15, 30, 59)},
        Moment{"unknown", "UTC", Utc(2026, 5, 6, 15, 30, 59), Policy::kUnknown, Utc(2026, 5, 6, 15, 30, 59)},
        Moment{"last second of 32 bits", "UTC", std::numeric_limits<int32_t>::max(), Policy::kHourly,
               Utc(2038, 1, 19, 3)},
        Moment{"before 1970", "UTC", Utc(1969, 12, 31, 23, 59, 59), Policy::kDaily, Utc(1969, 12, 31)}));

INSTANTIATE_TEST_SUITE_P(
    Berlin, PeriodTable,
    testing::Values(
        Moment{"half past three in the afternoon", kBerlin, Utc(2026, 7, 15, 13, 30), Policy::kDaily,
               Utc(2026, 7, 14, 22)},
        Moment{"hour that spring begins with", kBerlin, Utc(2026, 3, 29, 1, 10), Policy::kHourly,
               Utc(2026, 3, 29, 1)},
        Moment{"hour before spring", kBerlin, Utc(2026, 3, 29, 0, 59), Policy::kHourly, Utc(2026, 3, 29)},
        Moment{"first of the two autumn hours", kBerlin, Utc(2026, 10, 25, 0, 30), Policy::kHourly,
               Utc(2026, 10, 25)},
        Moment{"second of the two autumn hours", kBerlin, Utc(2026, 10, 25, 1, 30), Policy::kHourly,
               Utc(2026, 10, 25, 1)},
        // Behind a change the fields of the day's start are read with the flag of the moment: an hour off.
        Moment{"day of the change in spring", kBerlin, Utc(2026, 3, 29, 10), Policy::kDaily,
               Utc(2026, 3, 28, 22)},
        Moment{"day of the change in autumn", kBerlin, Utc(2026, 10, 25, 10), Policy::kDaily,
               Utc(2026, 10, 24, 23)},
        Moment{"day before the change in spring", kBerlin, Utc(2026, 3, 28, 10), Policy::kDaily,
               Utc(2026, 3, 27, 23)},
        Moment{"day after the change in spring", kBerlin, Utc(2026, 3, 30, 10), Policy::kDaily,
               Utc(2026, 3, 29, 22)},
        Moment{"month of the change in spring", kBerlin, Utc(2026, 3, 31, 10), Policy::kMonthly,
               Utc(2026, 2, 28, 22)},
        Moment{"year in summer", kBerlin, Utc(2026, 7, 1, 10), Policy::kYearly, Utc(2025, 12, 31, 22)},
        Moment{"year in winter", kBerlin, Utc(2026, 12, 1, 10), Policy::kYearly, Utc(2025, 12, 31, 23)}));

INSTANTIATE_TEST_SUITE_P(
    OtherZones, PeriodTable,
    testing::Values(
        Moment{"New York, day of the change in spring", kNewYork, Utc(2026, 3, 8, 15), Policy::kDaily,
               Utc(2026, 3, 8, 4)},
        Moment{"New York, day of the change in autumn", kNewYork, Utc(2026, 11, 1, 15), Policy::kDaily,
               Utc(2026, 11, 1, 5)},
        Moment{"New York, first of the two autumn hours", kNewYork, Utc(2026, 11, 1, 5, 30), Policy::kHourly,
               Utc(2026, 11, 1, 5)},
        Moment{"New York, second of the two autumn hours", kNewYork, Utc(2026, 11, 1, 6, 30), Policy::kHourly,
               Utc(2026, 11, 1, 6)},
        Moment{"Sao Paulo, a day without midnight", kSaoPaulo, Utc(2018, 11, 4, 15), Policy::kDaily,
               Utc(2018, 11, 4, 2)},
        Moment{"Sao Paulo, its first hour", kSaoPaulo, Utc(2018, 11, 4, 3, 15), Policy::kHourly,
               Utc(2018, 11, 4, 3)},
        Moment{"Sao Paulo, the evening before", kSaoPaulo, Utc(2018, 11, 4, 2, 59), Policy::kDaily,
               Utc(2018, 11, 3, 3)},
        Moment{"Sao Paulo, a week that begins on it", kSaoPaulo, Utc(2018, 11, 7, 15), Policy::kWeekly,
               Utc(2018, 11, 4, 2)},
        Moment{"Kolkata, half an hour from the others' hours", kKolkata, Utc(2026, 5, 6, 10, 29),
               Policy::kHourly, Utc(2026, 5, 6, 9, 30)},
        Moment{"Kolkata, day", kKolkata, Utc(2026, 5, 6, 10), Policy::kDaily, Utc(2026, 5, 5, 18, 30)},
        Moment{"Kolkata, year", kKolkata, Utc(2026, 5, 6, 10), Policy::kYearly, Utc(2025, 12, 31, 18, 30)},
        Moment{"Lord Howe, day of half an hour's change in autumn", kLordHowe, Utc(2026, 4, 5, 3),
               Policy::kDaily, Utc(2026, 4, 4, 13, 30)},
        Moment{"Lord Howe, day of half an hour's change in spring", kLordHowe, Utc(2026, 10, 4, 3),
               Policy::kDaily, Utc(2026, 10, 3, 13)},
        Moment{"Lord Howe, hour in summer", kLordHowe, Utc(2026, 1, 6, 3, 59), Policy::kHourly,
               Utc(2026, 1, 6, 3)}));

}  // namespace
