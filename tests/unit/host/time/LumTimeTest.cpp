#include <atomic>
#include <limits>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/time/LumTime.h"
#include "support/TimeZone.h"

namespace {

constexpr int32_t kHour = 3600;

/// The offset that the system itself gives.
int32_t SystemOffset(std::time_t seconds) {
    std::tm local{};
    localtime_r(&seconds, &local);
    return static_cast<int32_t>(local.tm_gmtoff);
}

}  // namespace

TEST(LumTime, GivesUtcAndLocalFields) {
    const TimeZone zone("Europe/Berlin");
    const std::time_t summer = Utc(2026, 7, 1, 22, 30, 15);
    const std::tm utc = GmTime(summer);
    EXPECT_EQ(utc.tm_mday, 1);
    EXPECT_EQ(utc.tm_hour, 22);
    EXPECT_EQ(utc.tm_isdst, 0);
    const std::tm local = LocalTime(summer);
    EXPECT_EQ(local.tm_mday, 2);
    EXPECT_EQ(local.tm_hour, 0);
    EXPECT_EQ(local.tm_min, 30);
    EXPECT_EQ(local.tm_isdst, 1);
}

TEST(LumTime, GivesAllZeroWhereTheYearDoesNotFit) {
    const std::time_t far = std::numeric_limits<std::time_t>::max();
    for (const std::tm& fields : {GmTime(far), LocalTime(far)}) {
        EXPECT_EQ(fields.tm_year, 0);
        EXPECT_EQ(fields.tm_mday, 0);
        EXPECT_EQ(fields.tm_sec, 0);
    }
}

TEST(LumTime, NoticesThatTheZoneHasChanged) {
    const std::time_t moment = Utc(2026, 1, 1);
    const TimeZone berlin("Europe/Berlin");
    EXPECT_EQ(LocalTime(moment).tm_hour, 1);
    setenv("TZ", "Asia/Kolkata", 1);
    EXPECT_EQ(LocalTime(moment).tm_hour, 5);
}

TEST(LumTime, ReadsUtcFieldsAsLocalStandardTime) {
    const TimeZone zone("Europe/Berlin");
    for (const std::time_t moment : {Utc(2026, 1, 1), Utc(2026, 7, 1), Utc(2026, 3, 29, 2, 30)}) {
        EXPECT_EQ(LumUtcFieldsAsLocal(moment), moment - kHour);
    }
}

TEST(LumTimeGmtOffset, FollowsDaylightSavingOnBothSidesOfEachChange) {
    struct Change {
        const char* zone;
        std::time_t moment;
        int32_t before;
        int32_t after;
    };
    const Change changes[] = {
        {"Europe/Berlin", Utc(2026, 3, 29, 1), kHour, 2 * kHour},
        {"Europe/Berlin", Utc(2026, 10, 25, 1), 2 * kHour, kHour},
        {"America/New_York", Utc(2026, 3, 8, 7), -5 * kHour, -4 * kHour},
        {"America/New_York", Utc(2026, 11, 1, 6), -4 * kHour, -5 * kHour},
        {"America/Sao_Paulo", Utc(2018, 11, 4, 3), -3 * kHour, -2 * kHour},
        {"America/Sao_Paulo", Utc(2019, 2, 17, 2), -2 * kHour, -3 * kHour},
    };
    for (const Change& change : changes) {
        const TimeZone zone(change.zone);
        EXPECT_EQ(LumGmtOffset(change.moment - 1), change.before) << change.zone << ' ' << change.moment;
        EXPECT_EQ(LumGmtOffset(change.moment), change.after) << change.zone << ' ' << change.moment;
    }
}

TEST(LumTimeGmtOffset, IsFixedInZonesWithoutDaylightSaving) {
    struct Fixed {
        const char* zone;
        int32_t offset;
    };
    for (const Fixed& fixed : {Fixed{"Asia/Kolkata", 19800}, Fixed{"UTC", 0}}) {
        const TimeZone zone(fixed.zone);
        for (const std::time_t moment : {std::time_t{0}, std::time_t{-1}, Utc(2026, 1, 1), Utc(2026, 7, 1)}) {
            EXPECT_EQ(LumGmtOffset(moment), fixed.offset) << fixed.zone << ' ' << moment;
        }
    }
}

TEST(LumTimeGmtOffset, TakesSummerTimeForOneHourEverywhere) {
    const TimeZone zone("Australia/Lord_Howe");
    EXPECT_EQ(LumGmtOffset(Utc(2026, 7, 1)), 10 * kHour + 1800);
    EXPECT_EQ(LumGmtOffset(Utc(2026, 1, 1)), 11 * kHour + 1800) << "the clock there is 11 hours ahead";
}

TEST(LumTimeGmtOffset, AgreesWithTheSystemHourByHour) {
    for (const char* name :
         {"Europe/Berlin", "America/New_York", "America/Sao_Paulo", "Asia/Kolkata", "UTC"}) {
        const TimeZone zone(name);
        for (std::time_t moment = Utc(2018, 10, 1); moment < Utc(2019, 4, 15); moment += kHour) {
            ASSERT_EQ(LumGmtOffset(moment), SystemOffset(moment)) << name << ' ' << moment;
        }
    }
}

TEST(LumTimeGmtOffset, RemembersNoAnswerOfAnotherZone) {
    const std::time_t moment = Utc(2026, 7, 1);
    for (int round = 0; round < 3; ++round) {
        {
            const TimeZone zone("Europe/Berlin");
            EXPECT_EQ(LumGmtOffset(moment), 2 * kHour);
        }
        {
            const TimeZone zone("America/New_York");
            EXPECT_EQ(LumGmtOffset(moment), -4 * kHour);
        }
        {
            const TimeZone zone("UTC");
            EXPECT_EQ(LumGmtOffset(moment), 0);
        }
    }
}

TEST(LumTimeGmtOffset, RemembersNoAnswerOfASecondThatOnlyEndsInTheSameBits) {
    const TimeZone zone("Europe/Berlin");
    const std::time_t winter = Utc(2026, 3, 1);
    const std::time_t later = winter + (std::time_t{1} << 32U);
    ASSERT_NE(SystemOffset(later), SystemOffset(winter));
    EXPECT_EQ(LumGmtOffset(winter), kHour);
    EXPECT_EQ(LumGmtOffset(later), 2 * kHour);
    EXPECT_EQ(LumGmtOffset(winter), kHour);
    const std::time_t earlier = winter - (std::time_t{1} << 32U);
    EXPECT_EQ(LumGmtOffset(earlier), SystemOffset(earlier)) << "a local time of the city's own";
}

TEST(LumTimeGmtOffset, AnswersManyThreadsAtOnce) {
    const TimeZone zone("Europe/Berlin");
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&wrong, i] {
            const std::time_t moment = i % 2 == 0 ? Utc(2026, 1, 1) : Utc(2026, 7, 1);
            for (int j = 0; j < 500; ++j) {
                if (LumGmtOffset(moment + j % 3) != (i % 2 == 0 ? kHour : 2 * kHour)) {
                    ++wrong;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}
