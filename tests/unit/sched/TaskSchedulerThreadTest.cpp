#include <atomic>
#include <ctime>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "events/EventAggregation.h"
#include "events/EventUpload.h"
#include "host/time/LumTime.h"
#include "sched/TaskSchedulerThread.h"
#include "support/StartedModule.h"
#include "support/TimeZone.h"
#include "support/WaitFor.h"

namespace {

/// The initials of the periods that change between two moments.
std::string Changes(std::time_t previous, std::time_t now) {
    constexpr const char* kInitials = "mhdwMY";
    const auto changed = ChangedPeriods(LocalTime(previous), LocalTime(now));
    std::string text;
    for (uint32_t i = 0; i < kPeriodCount; ++i) {
        if (changed[i]) {
            text += kInitials[i];
        }
    }
    return text;
}

TEST(TaskSchedulerThreadPeriods, AreThoseWhoseFieldDiffers) {
    const TimeZone zone("UTC");
    EXPECT_EQ(Changes(Utc(2026, 5, 6, 10, 58, 1), Utc(2026, 5, 6, 10, 58, 59)), "");
    EXPECT_EQ(Changes(Utc(2026, 5, 6, 10, 58, 59), Utc(2026, 5, 6, 10, 59)), "m");
    EXPECT_EQ(Changes(Utc(2026, 5, 6, 10, 59, 55), Utc(2026, 5, 6, 11, 0, 5)), "mh");
    EXPECT_EQ(Changes(Utc(2026, 5, 6, 23, 59, 55), Utc(2026, 5, 7, 0, 0, 5)), "mhdw");
    EXPECT_EQ(Changes(Utc(2028, 2, 28, 23, 59, 55), Utc(2028, 2, 29)), "mhdw");
    EXPECT_EQ(Changes(Utc(2028, 2, 29, 23, 59, 55), Utc(2028, 3, 1)), "mhdwM");
    EXPECT_EQ(Changes(Utc(2026, 12, 31, 23, 59, 55), Utc(2027, 1, 1)), "mhdwMY");
}

TEST(TaskSchedulerThreadPeriods, CompareFieldsAndNotWhatHasPassed) {
    const TimeZone zone("UTC");
    EXPECT_EQ(Changes(Utc(2026, 5, 6, 10, 5), Utc(2026, 5, 7, 10, 5)), "dw");
    EXPECT_EQ(Changes(Utc(2026, 5, 6, 10, 5), Utc(2026, 5, 13, 10, 5)), "d");
    EXPECT_EQ(Changes(Utc(2026, 5, 6, 10, 5), Utc(2026, 5, 6, 12, 5)), "h");
    EXPECT_EQ(Changes(Utc(2025, 5, 6, 10, 5), Utc(2026, 5, 6, 10, 5)), "wY");
}

TEST(TaskSchedulerThreadPeriods, SeeAClockThatWasSetInEitherDirection) {
    const TimeZone zone("UTC");
    const std::time_t noon = Utc(2026, 5, 6, 12, 30, 30);
    for (const int direction : {-1, 1}) {
        EXPECT_EQ(Changes(noon, noon + direction * 60), "m");
        EXPECT_EQ(Changes(noon, noon + direction * 3600), "h");
        EXPECT_EQ(Changes(noon, noon + direction * 86400), "dw");
        EXPECT_EQ(Changes(noon, noon + direction * 365 * 86400), "wY");
    }
}

TEST(TaskSchedulerThreadPeriods, FollowDaylightSaving) {
    {
        const TimeZone zone("Europe/Berlin");
        EXPECT_EQ(Changes(Utc(2026, 3, 29, 0, 59, 55), Utc(2026, 3, 29, 1, 0, 5)), "mh");
        EXPECT_EQ(Changes(Utc(2026, 10, 25, 0, 59, 55), Utc(2026, 10, 25, 1, 0, 5)), "m");
    }
    {
        const TimeZone zone("America/New_York");
        EXPECT_EQ(Changes(Utc(2026, 3, 8, 6, 59, 55), Utc(2026, 3, 8, 7, 0, 5)), "mh");
        EXPECT_EQ(Changes(Utc(2026, 11, 1, 5, 59, 55), Utc(2026, 11, 1, 6, 0, 5)), "m");
    }
    {
        const TimeZone zone("America/Sao_Paulo");
        EXPECT_EQ(Changes(Utc(2018, 11, 4, 2, 59, 55), Utc(2018, 11, 4, 3, 0, 5)), "mhdw");
    }
    {
        const TimeZone zone("Asia/Kolkata");
        EXPECT_EQ(Changes(Utc(2026, 5, 6, 18, 29, 55), Utc(2026, 5, 6, 18, 30, 5)), "mhdw");
    }
    {
        const TimeZone zone("Australia/Lord_Howe");
        EXPECT_EQ(Changes(Utc(2026, 10, 3, 15, 29, 55), Utc(2026, 10, 3, 15, 30, 5)), "mh");
        EXPECT_EQ(Changes(Utc(2026, 4, 4, 14, 59, 55), Utc(2026, 4, 4, 15, 0, 5)), "m");
    }
}

class TaskSchedulerThreadTest : public testing::Test, protected StartedModule {
protected:
    /// The tasks as "kind model previous time", one a line.
    static std::string Queued() {
        std::string text;
        for (const auto& task : TakeTasks()) {
            text += std::to_string(static_cast<int>(task->GetType())) + " " +
                    task->GetModelName().GetString() + " " + std::to_string(task->GetPreviousTimestamp()) +
                    " " + std::to_string(task->GetTimestamp()) +
                    (task->IsScheduled() ? "\n" : " unscheduled\n");
        }
        return text;
    }
    void StartAt(TaskSchedulerThread& thread, std::time_t time) {
        Change("UPDATE Scheduler SET S_Timestamp=" + std::to_string(time));
        thread.Initialise();
    }
    std::string Stored() { return Rows("SELECT S_Timestamp FROM Scheduler"); }

    static std::string Line(const char* kind, const char* model, uint32_t previous, std::time_t time) {
        return std::string(kind) + " " + model + " " + std::to_string(previous) + " " + std::to_string(time) +
               "\n";
    }

    const TimeZone zone_{"Europe/Berlin"};
    TaskSchedulerThread thread_;
};

TEST_F(TaskSchedulerThreadTest, QueuesNothingWhileNoFieldHasChangedAndStoresNothing) {
    Add({.name = "A",
         .aggregation = Policy::kMinutely,
         .upload = Policy::kMinutely,
         .deletion = Policy::kMinutely});
    StartAt(thread_, Utc(2026, 5, 6, 10, 0, 5));
    thread_.RunCycle(Utc(2026, 5, 6, 10, 0, 59));
    EXPECT_EQ(Queued(), "");
    EXPECT_EQ(Stored(), std::to_string(Utc(2026, 5, 6, 10, 0, 5)));
}

TEST_F(TaskSchedulerThreadTest, QueuesAggregationsThenUploadsThenDeletionsInTheOrderOfNames) {
    const auto b = Add({.name = "B",
                        .aggregation = Policy::kHourly,
                        .upload = Policy::kHourly,
                        .deletion = Policy::kHourly});
    Add({.name = "A",
         .aggregation = Policy::kHourly,
         .upload = Policy::kHourly,
         .deletion = Policy::kHourly});
    b->SetLastAggregationTime(11);
    b->SetLastUploadTime(22);
    const std::time_t now = Utc(2026, 5, 6, 11, 0, 3);
    StartAt(thread_, Utc(2026, 5, 6, 10, 59, 53));
    thread_.RunCycle(now);
    EXPECT_EQ(Queued(), Line("1", "A", 0, now) + Line("1", "B", 11, now) + Line("2", "A", 0, now) +
                            Line("2", "B", 22, now) + Line("3", "A", 0, now) + Line("3", "B", 0, now));
    EXPECT_EQ(Stored(), std::to_string(now));
}

TEST_F(TaskSchedulerThreadTest, QueuesPeriodsFromTheShortestToTheLongest) {
    for (const auto& [name, policy] : {std::pair{"Year", Policy::kYearly},
                                       {"Month", Policy::kMonthly},
                                       {"Week", Policy::kWeekly},
                                       {"Day", Policy::kDaily},
                                       {"Hour", Policy::kHourly},
                                       {"Minute", Policy::kMinutely}}) {
        Add({.name = name, .deletion = policy});
    }
    const std::time_t now = Utc(2026, 12, 31, 23, 0, 2);
    StartAt(thread_, now - 10);
    thread_.RunCycle(now);
    EXPECT_EQ(Queued(), Line("3", "Minute", 0, now) + Line("3", "Hour", 0, now) + Line("3", "Day", 0, now) +
                            Line("3", "Week", 0, now) + Line("3", "Month", 0, now) +
                            Line("3", "Year", 0, now));
    thread_.RunCycle(now + 10);
    EXPECT_EQ(Queued(), "");
}

TEST_F(TaskSchedulerThreadTest, QueuesWeeklyWorkWithEveryChangeOfDay) {
    Add({.name = "Week", .deletion = Policy::kWeekly});
    StartAt(thread_, Utc(2026, 5, 5, 21, 59, 55));
    for (int day = 5; day < 9; ++day) {
        thread_.RunCycle(Utc(2026, 5, static_cast<unsigned>(day), 22, 0, 5));
        EXPECT_EQ(TakeTasks().size(), 1U) << day;
    }
}

TEST_F(TaskSchedulerThreadTest, NeverQueuesWhatHasNoPeriod) {
    Add({.name = "Never", .aggregation = Policy::kNever});
    Add({.name = "Unknown",
         .aggregation = Policy::kUnknown,
         .upload = Policy::kUnknown,
         .deletion = Policy::kUnknown});
    StartAt(thread_, Utc(2026, 12, 31, 22, 59, 55));
    thread_.RunCycle(Utc(2026, 12, 31, 23, 0, 5));
    EXPECT_EQ(Queued(), "");
}

TEST_F(TaskSchedulerThreadTest, QueuesForDisabledModelsAndWithEverythingSwitchedOff) {
    Add({.name = "A", .upload = Policy::kMinutely})->SetEnabled(false);
    UploadEnabled = false;
    AggregationEnabled = false;
    StartAt(thread_, Utc(2026, 5, 6, 10, 0, 55));
    thread_.RunCycle(Utc(2026, 5, 6, 10, 1, 5));
    EXPECT_EQ(TakeTasks().size(), 1U);
}

TEST_F(TaskSchedulerThreadTest, CatchesUpOnceOnWhatFellDueWhileItWasDown) {
    Add({.name = "Day", .upload = Policy::kDaily});
    StartAt(thread_, Utc(2026, 5, 3, 12, 30, 5));
    thread_.RunCycle(Utc(2026, 5, 6, 12, 30, 5));
    EXPECT_EQ(Queued(), Line("2", "Day", 0, Utc(2026, 5, 6, 12, 30, 5)));
    EXPECT_EQ(Stored(), std::to_string(Utc(2026, 5, 3, 12, 30, 5)));  // the minute is the same
    EXPECT_EQ(Log().Count("print TaskSchedulerThread::ThreadMain: Last timestamp has been read with "
                          "success (" +
                          std::to_string(Utc(2026, 5, 3, 12, 30, 5)) + ")\n"),
              1U);
}

TEST_F(TaskSchedulerThreadTest, SeesAClockThatWasSetBack) {
    Add({.name = "Hour", .upload = Policy::kHourly});
    StartAt(thread_, Utc(2026, 5, 6, 12, 30, 5));
    thread_.RunCycle(Utc(2026, 5, 6, 11, 30, 5));
    EXPECT_EQ(TakeTasks().size(), 1U);
    thread_.RunCycle(Utc(2026, 5, 6, 11, 30, 15));
    EXPECT_EQ(TakeTasks().size(), 0U);
}

TEST_F(TaskSchedulerThreadTest, WrapsBehindTheLastSecondOf32Bits) {
    const TimeZone zone("UTC");
    Add({.name = "Minute", .deletion = Policy::kMinutely});
    StartAt(thread_, Utc(2038, 1, 19, 3, 14, 0));
    thread_.RunCycle(Utc(2038, 1, 19, 3, 14, 8));
    EXPECT_EQ(Queued(), "");
    const auto wrapped = static_cast<int32_t>(Utc(2038, 1, 19, 3, 14, 18));
    thread_.RunCycle(Utc(2038, 1, 19, 3, 14, 18));
    EXPECT_EQ(Queued(), Line("3", "Minute", 0, wrapped));
    EXPECT_EQ(Stored(), std::to_string(wrapped));
}

TEST_F(TaskSchedulerThreadTest, TakesAStoredZeroForAFirstStart) {
    const std::time_t before = std::time(nullptr);
    thread_.Initialise();
    const std::string stored = Stored();
    EXPECT_GE(std::stoll(stored), before);
    EXPECT_LE(std::stoll(stored), std::time(nullptr));
    EXPECT_EQ(
        Log().Count("print TaskSchedulerThread::ThreadMain: Initializing last timestamp (" + stored + ")\n"),
        1U);
}

TEST_F(TaskSchedulerThreadTest, TakesATableWithoutItsRowForAFirstStartAndWritesNothing) {
    Change("DELETE FROM Scheduler");
    thread_.Initialise();
    EXPECT_EQ(
        Log().Count("print TaskSchedulerThread::ThreadMain: Last timestamp has been read with success (0)\n"),
        1U);
    EXPECT_EQ(Stored(), "");
}

TEST_F(TaskSchedulerThreadTest, GoesOnWithoutItsTable) {
    Add({.name = "Minute", .upload = Policy::kMinutely});
    Change("DROP TABLE Scheduler");
    thread_.Initialise();
    EXPECT_EQ(Log().Count("warning TaskSchedulerThread::ThreadMain: Failed to read last timestamp\n"), 1U);
    const std::time_t later = std::time(nullptr) + 60;
    thread_.RunCycle(later);
    EXPECT_EQ(Log().Count("warning TaskSchedulerThread::ThreadMain: Failed to write last timestamp (" +
                          std::to_string(later) + ")\n"),
              1U);
    EXPECT_EQ(TakeTasks().size(), 1U);
}

TEST_F(TaskSchedulerThreadTest, SaysThatItCannotLockTheDatabase) {
    const DatabaseLockout exhausted;
    thread_.Initialise();
    EXPECT_EQ(Log().Count("error ReadLastTimestamp: Failed to lock database\n"), 1U);
    EXPECT_EQ(Log().Count("error WriteLastTimestamp: Failed to lock database\n"), 1U);
    EXPECT_EQ(Log().Count("warning TaskSchedulerThread::ThreadMain: Failed to read last timestamp\n"), 1U);
}

TEST_F(TaskSchedulerThreadTest, EndsAtOnceWhenItIsCancelledInItsPause) {
    ASSERT_TRUE(thread_.Start(nullptr, nullptr));
    while (Log().Count("trace TaskSchedulerThread::ThreadMain: Entering\n") == 0) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(thread_.Cancel(3000, true));
}

TEST_F(TaskSchedulerThreadTest, WatchesTheClockInItsTurns) {
    Add({.name = "A"})->SetLastUploadTime(static_cast<LumSeconds>(std::time(nullptr) + 7200));
    ASSERT_TRUE(thread_.Start(nullptr, nullptr));
    EXPECT_TRUE(WaitFor([this] { return Log().Count("which lies in the future") == 1; }));
    EXPECT_TRUE(thread_.Cancel(3000, true));
}

TEST(TaskSchedulerThreadClock, IsWatchedForJumpsAndForTimesInTheFuture) {
    const StartedModule module;
    const auto model = module.Add({.name = "A"});
    const auto now = std::time(nullptr);
    model->SetLastUploadTime(static_cast<LumSeconds>(now + 7200));
    TaskSchedulerThread scheduler;
    const std::string ahead = "Model 'A' is uploaded up to " + std::to_string(now + 7200) +
                              ", which lies in the future: nothing is until then";
    scheduler.WatchClock(now);
    EXPECT_EQ(module.Log().Count(ahead), 1U) << "at the start";
    scheduler.WatchClock(now + 1000);
    EXPECT_EQ(module.Log().Count("The clock was set"), 0U);
    EXPECT_EQ(module.Log().Count(ahead), 1U);
    scheduler.WatchClock(now + 5000);
    EXPECT_EQ(module.Log().Count("The clock was set forward by "), 1U);
    EXPECT_EQ(module.Log().Count(ahead), 2U);
    scheduler.WatchClock(now + 5000);
    EXPECT_EQ(module.Log().Count("The clock was set"), 1U);
    model->SetLastUploadTime(0);
    model->SetLastAggregationTime(static_cast<LumSeconds>(now + 7200));
    scheduler.WatchClock(now);
    EXPECT_EQ(module.Log().Count("The clock was set back by "), 1U);
    EXPECT_EQ(module.Log().Count("Model 'A' is aggregated up to "), 1U);
}

/// The cycle's own part throws the first time.
TEST(TaskSchedulerThreadCycle, GoesOnAfterAnException) {
    StartedModule module;
    static std::atomic<int> cycles{0};
    cycles = 0;
    TaskSchedulerThread thread;
    thread.SetEachCycle([] {
        if (++cycles == 1) {
            throw std::runtime_error("nobody expected this");
        }
    });
    ASSERT_TRUE(thread.Start(nullptr, nullptr));
    EXPECT_TRUE(WaitFor([&] {
        return module.Log().Count(
                   "error TaskSchedulerThread::ThreadMain: A cycle ended with an exception: "
                   "nobody expected this") == 1;
    }));
    thread.Cancel(0, true);
    thread.WaitForEnd();
}

}  // namespace
