#include <cstdint>
#include <limits>
#include <optional>

#include <gtest/gtest.h>

#include "events/EventAggregation.h"
#include "events/EventRetention.h"
#include "events/EventUpload.h"
#include "support/TimeZone.h"

namespace {

int32_t At(int year, unsigned month, unsigned day, int hour = 0, int minute = 0, int second = 0) {
    return static_cast<int32_t>(Utc(year, month, day, hour, minute, second));
}

TEST(EventRetentionCutOff, IsTheMomentItselfWhereNothingIsScheduled) {
    EXPECT_EQ(DeletionCutOff(Policy::kDaily, 1234567, false), 1234567);
    EXPECT_EQ(DeletionCutOff(Policy::kNever, 1234567, false), 1234567);
}

TEST(EventRetentionCutOff, IsTheStartOfThePeriodOfAScheduledMoment) {
    const TimeZone zone("Europe/Berlin");
    const auto moment = static_cast<uint32_t>(At(2026, 7, 15, 13, 30, 5));  // a Wednesday, 15:30:05
    EXPECT_EQ(DeletionCutOff(Policy::kMinutely, moment, true), At(2026, 7, 15, 13, 30));
    EXPECT_EQ(DeletionCutOff(Policy::kHourly, moment, true), At(2026, 7, 15, 13));
    EXPECT_EQ(DeletionCutOff(Policy::kDaily, moment, true), At(2026, 7, 14, 22));
    EXPECT_EQ(DeletionCutOff(Policy::kWeekly, moment, true), At(2026, 7, 11, 22));
    EXPECT_EQ(DeletionCutOff(Policy::kMonthly, moment, true), At(2026, 6, 30, 22));
    EXPECT_EQ(DeletionCutOff(Policy::kYearly, moment, true), At(2025, 12, 31, 22));
}

TEST(EventRetentionCutOff, OfAModelThatKeepsEverythingIsTheMomentToo) {
    EXPECT_EQ(DeletionCutOff(Policy::kNever, 1234567, true), 1234567);
    EXPECT_EQ(DeletionCutOff(Policy::kUnknown, 1234567, true), 1234567);
}

TEST(EventRetentionCutOff, TakesTimesAsSigned) {
    EXPECT_EQ(DeletionCutOff(Policy::kNever, static_cast<uint32_t>(-5), false), -5);
    EXPECT_EQ(DeletionCutOff(Policy::kDaily, 0x80000000U, false), std::numeric_limits<int32_t>::min());
}

TEST(EventRetentionCutOff, WrapsWhereAPeriodBeganBeforeTheFirstSecond) {
    const TimeZone zone("UTC");
    // 1901-12-13 20:45:52, whose day began 74752 s before.
    const int64_t wrapped = int64_t{std::numeric_limits<int32_t>::max()} + 1 - 74752;
    EXPECT_EQ(DeletionCutOff(Policy::kDaily, 0x80000000U, true), static_cast<int32_t>(wrapped));
}

TEST(EventAggregationWindow, CutsBothEndsToTheirPeriods) {
    const TimeZone zone("Europe/Berlin");
    EXPECT_EQ(AggregationWindow(Policy::kHourly, At(2026, 7, 15, 7, 20), At(2026, 7, 15, 9, 45),
                                At(2026, 7, 15, 6)),
              (EventWindow{At(2026, 7, 15, 7), At(2026, 7, 15, 9)}));
    EXPECT_EQ(AggregationWindow(Policy::kDaily, At(2026, 7, 14, 7), At(2026, 7, 15, 9), 0),
              (EventWindow{At(2026, 7, 13, 22), At(2026, 7, 14, 22)}));
    EXPECT_EQ(AggregationWindow(Policy::kWeekly, 0, At(2026, 7, 15, 9), 0),
              (EventWindow{0, At(2026, 7, 11, 22)}));
}

TEST(EventAggregationWindow, NeverGoesBehindWhatIsDone) {
    const TimeZone zone("UTC");
    const int32_t last = At(2026, 7, 15, 8);
    EXPECT_EQ(AggregationWindow(Policy::kHourly, At(2026, 7, 15, 5, 20), At(2026, 7, 15, 9, 45), last),
              (EventWindow{last, At(2026, 7, 15, 9)}));
    EXPECT_EQ(AggregationWindow(Policy::kHourly, last, At(2026, 7, 15, 8, 59, 59), last), std::nullopt);
    EXPECT_EQ(AggregationWindow(Policy::kHourly, last, At(2026, 7, 15, 7), last), std::nullopt);
}

TEST(EventAggregationWindow, OfAModelWithoutPeriodIsTakenAsItStands) {
    EXPECT_EQ(AggregationWindow(Policy::kNever, 11, 22, 5), (EventWindow{11, 22}));
    EXPECT_EQ(AggregationWindow(Policy::kUnknown, 1, 22, 5), (EventWindow{5, 22}));
}

TEST(EventAggregationWindow, ComparesAsSigned) {
    const TimeZone zone("UTC");
    EXPECT_EQ(AggregationWindow(Policy::kMinutely, 60, std::numeric_limits<int32_t>::min() + 100, 60),
              std::nullopt);
    EXPECT_EQ(AggregationWindow(Policy::kMinutely, -600, -60, -600), (EventWindow{-600, -60}));
}

TEST(EventUploadWindow, CutsTheEndOfAScheduledUploadAlone) {
    const TimeZone zone("Europe/Berlin");
    const int32_t start = At(2026, 7, 15, 7, 20, 7);
    const int32_t end = At(2026, 7, 15, 8, 59, 59);
    EXPECT_EQ(UploadWindow(Policy::kHourly, start, end, true, 0), (EventWindow{start, At(2026, 7, 15, 8)}));
    EXPECT_EQ(UploadWindow(Policy::kHourly, start, end, false, 0), (EventWindow{start, end}));
    EXPECT_EQ(UploadWindow(Policy::kMinutely, start, end, true, 0),
              (EventWindow{start, At(2026, 7, 15, 8, 59)}));
    EXPECT_EQ(UploadWindow(Policy::kNever, start, end, true, 0), (EventWindow{start, end}));
    EXPECT_EQ(UploadWindow(Policy::kUnknown, start, end, true, 0), (EventWindow{start, end}));
}

TEST(EventUploadWindow, NeverGoesBehindWhatIsDone) {
    EXPECT_EQ(UploadWindow(Policy::kNever, 10, 30, false, 20), (EventWindow{20, 30}));
    EXPECT_EQ(UploadWindow(Policy::kNever, 10, 20, false, 20), std::nullopt);
    EXPECT_EQ(UploadWindow(Policy::kNever, 10, 19, false, 20), std::nullopt);
}

TEST(EventUploadWindow, IsEmptyAfterTheClockWasSetBack) {
    const TimeZone zone("Europe/Berlin");
    const int32_t last = At(2026, 7, 15, 8);
    for (const int32_t back : {60, 3600, 86400, 365 * 86400}) {
        EXPECT_EQ(UploadWindow(Policy::kHourly, last, last - back, true, last), std::nullopt) << back;
        EXPECT_EQ(UploadWindow(Policy::kHourly, last, last - back, false, last), std::nullopt) << back;
    }
}

TEST(EventUploadWindow, TakesEverythingAfterTheClockWasSetForward) {
    const TimeZone zone("Europe/Berlin");
    const int32_t last = At(2026, 7, 15, 8);
    for (const int32_t forward : {3600, 86400, 365 * 86400}) {
        EXPECT_EQ(UploadWindow(Policy::kMinutely, last, last + forward + 7, true, last),
                  (EventWindow{last, last + forward}))
            << forward;
    }
}

}  // namespace
