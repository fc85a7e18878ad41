#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <optional>

#include "host/thread/LumThread.h"
#include "host/time/LumTime.h"

/// The periods in the order in which they are looked at; each one's policy has the next number.
inline constexpr uint32_t kPeriodCount = 6;

/// Which periods have changed between two moments, by comparing the local calendar fields (minute, hour, day
/// of the month, day of the week, month, year) one by one, in either direction. Weekly work follows the day
/// of the week, so it falls due with every change of day.
[[nodiscard]] std::array<bool, kPeriodCount> ChangedPeriods(const std::tm& previous, const std::tm& now);

/// Wakes every 10 seconds and queues, for each calendar field that has changed since it last looked, a task
/// for every model whose policy is that period: first all aggregations, then all uploads, then all deletions.
/// Its last time is kept in the database, so that what fell due while the agent was down is done once at the
/// next start.
class TaskSchedulerThread : public LumThread {
public:
    TaskSchedulerThread() = default;
    TaskSchedulerThread(const TaskSchedulerThread&) = delete;
    TaskSchedulerThread& operator=(const TaskSchedulerThread&) = delete;
    ~TaskSchedulerThread() override { WaitForEnd(); }

    void ThreadMain() override;

    /// Has `routine` called in each cycle, by the thread. To be called before Start.
    void SetEachCycle(void (*routine)()) { eachCycle_ = routine; }

    /// One look at the clock that shows `now`: queues what has fallen due since the last timestamp and moves
    /// it.
    void RunCycle(std::time_t now);
    /// Takes the last timestamp over from the database, or makes the current time the first one.
    void Initialise();
    /// Another look: warns where the clock was set by an hour or more since the last one, told by a clock
    /// that nobody sets, and then and at the first look of models whose times lie in the future.
    void WatchClock(std::time_t now);

private:
    /// One turn of the thread.
    void RunTurn();
    [[nodiscard]] static bool ReadLastTimestamp(LumSeconds& timestamp);
    [[nodiscard]] static bool WriteLastTimestamp(LumSeconds timestamp);
    /// Writes and says where that failed.
    static void KeepLastTimestamp(LumSeconds timestamp);
    void QueueDueTasks(uint32_t period) const;

    void (*eachCycle_)() = nullptr;
    /// What the clock showed at moment 0 of the one that nobody sets; nothing before the first look.
    std::optional<std::time_t> clockBase_;
    /// 0 before the first cycle. Used on the thread alone.
    LumSeconds lastTimestamp_ = 0;
};

extern TaskSchedulerThread SchedulerThread;
