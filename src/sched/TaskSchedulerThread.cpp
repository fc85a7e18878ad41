#include "sched/TaskSchedulerThread.h"

#include <cstdlib>
#include <exception>
#include <memory>
#include <utility>

#include "host/log/LumDebug.h"
#include "host/time/LumTime.h"
#include "model/Model.h"
#include "model/ModelElement.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/EventTable.h"
#include "store/startup/StoreStartup.h"
#include "tasks/Task.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "TaskSchedulerThread::ThreadMain");
constexpr uint32_t kPauseMs = 10000;

/// The period whose change makes the stored timestamp be written.
constexpr uint32_t kMinutePeriod = 0;

/// A clock that is set by so much is worth a warning: periods are cut by it.
constexpr std::time_t kJumpSeconds = 3600;
/// How far a model's time may be ahead without a warning.
constexpr std::time_t kAheadSeconds = 60;

/// Runs a part of the thread's work; false where it threw, which is one error line.
template <class Body>
bool EndsWell(Body&& body) {
    try {
        std::forward<Body>(body)();
        return true;
    } catch (const std::exception& error) {
        kRoutine.Error("A cycle ended with an exception: %s", error.what());
        return false;
    }
}

template <class Visit>
void ForEachModel(Visit&& visit) {
    std::shared_ptr<Model_t> model;
    for (uint32_t i = 0; ModelCollection.GetAt(i, model); ++i) {
        visit(*model);
    }
}

}  // namespace

std::array<bool, kPeriodCount> ChangedPeriods(const std::tm& previous, const std::tm& now) {
    return {previous.tm_min != now.tm_min,   previous.tm_hour != now.tm_hour,
            previous.tm_mday != now.tm_mday, previous.tm_wday != now.tm_wday,
            previous.tm_mon != now.tm_mon,   previous.tm_year != now.tm_year};
}

void TaskSchedulerThread::ThreadMain() {
    kRoutine.Trace("Entering");
    bool isInitialised = EndsWell([this] { Initialise(); });
    while (!CheckCancelled(false)) {
        isInitialised = isInitialised || EndsWell([this] { Initialise(); });
        const LumSeconds before = lastTimestamp_;
        if (isInitialised && !EndsWell([this] { RunTurn(); })) {
            lastTimestamp_ = before;  // what fell due does so again
        }
        if (CheckCancelled(false)) {
            return;
        }
        Pause(kPauseMs);
    }
}

void TaskSchedulerThread::RunTurn() {
    static_cast<void>(KeepStoreUp());  // what it cannot make good now it looks at again in the next turn
    RunCycle(std::time(nullptr));
    WatchClock(std::time(nullptr));
    if (eachCycle_ != nullptr) {
        eachCycle_();
    }
}

void TaskSchedulerThread::Initialise() {
    if (ReadLastTimestamp(lastTimestamp_)) {
        kRoutine.Print("Last timestamp has been read with success (%ld)", int64_t{lastTimestamp_});
    } else {
        kRoutine.Warning("Failed to read last timestamp");
        lastTimestamp_ = 0;
    }
    if (lastTimestamp_ == 0) {
        lastTimestamp_ = LumNow();
        kRoutine.Print("Initializing last timestamp (%ld)", int64_t{lastTimestamp_});
        KeepLastTimestamp(lastTimestamp_);
    }
}

void TaskSchedulerThread::RunCycle(std::time_t now) {
    const std::array<bool, kPeriodCount> changed = ChangedPeriods(LocalTime(lastTimestamp_), LocalTime(now));
    lastTimestamp_ = static_cast<LumSeconds>(now);
    for (uint32_t period = 0; period < kPeriodCount; ++period) {
        if (changed[period]) {
            QueueDueTasks(period);
        }
    }
    if (changed[kMinutePeriod]) {
        KeepLastTimestamp(lastTimestamp_);
    }
}

void TaskSchedulerThread::WatchClock(std::time_t now) {
    timespec sinceStart{};
    clock_gettime(CLOCK_BOOTTIME, &sinceStart);
    const std::time_t base = now - sinceStart.tv_sec;
    const std::time_t jump = base - clockBase_.value_or(base);
    const bool isFirst = !clockBase_.has_value();
    if (!isFirst && std::abs(jump) < kJumpSeconds) {
        return;
    }
    clockBase_ = base;
    if (!isFirst) {
        kRoutine.Warning("The clock was set %s by %ld seconds", jump > 0 ? "forward" : "back",
                         int64_t{std::abs(jump)});
    }
    ForEachModel([now](const Model_t& model) {
        if (model.GetLastUploadTime() > now + kAheadSeconds) {
            kRoutine.Warning(
                "Model '%S' is uploaded up to %ld, which lies in the future: nothing is until then",
                model.GetName(), int64_t{model.GetLastUploadTime()});
        }
        if (model.GetLastAggregationTime() > now + kAheadSeconds) {
            kRoutine.Warning(
                "Model '%S' is aggregated up to %ld, which lies in the future: nothing is until then",
                model.GetName(), int64_t{model.GetLastAggregationTime()});
        }
    });
}

bool TaskSchedulerThread::ReadLastTimestamp(LumSeconds& timestamp) {
    DatabaseScope scope(LumRoutine(ModuleDebug, "ReadLastTimestamp"));
    if (!scope.IsLocked()) {
        return false;
    }
    const GenSqlResult* const rows = scope.Query("SELECT S_Timestamp FROM Scheduler;");
    scope.Unlock();
    if (rows == nullptr) {
        return false;
    }
    timestamp = ReadInt32(*rows, 0);  // a table without its row reads as a first start
    return true;
}

bool TaskSchedulerThread::WriteLastTimestamp(LumSeconds timestamp) {
    LumString statement;
    statement.Printf("UPDATE Scheduler SET S_Timestamp=%ld;", int64_t{timestamp});
    DatabaseScope scope(LumRoutine(ModuleDebug, "WriteLastTimestamp"));
    return scope.IsLocked() && scope.Query(statement) != nullptr;
}

void TaskSchedulerThread::KeepLastTimestamp(LumSeconds timestamp) {
    if (!WriteLastTimestamp(timestamp)) {
        kRoutine.Warning("Failed to write last timestamp (%ld)", int64_t{timestamp});
    }
}

void TaskSchedulerThread::QueueDueTasks(uint32_t period) const {
    const auto due = static_cast<Policy>(period + 1);
    const LumSeconds now = lastTimestamp_;
    ForEachModel([&](const Model_t& model) {
        if (model.GetAggregationPolicy() == due) {
            TaskQueue.Push(MakeTask(TaskType::TaskAggregate, model.GetName(), model.GetLastAggregationTime(),
                                    now, true));
        }
    });
    ForEachModel([&](const Model_t& model) {
        if (model.GetUploadPolicy() == due) {
            TaskQueue.Push(
                MakeTask(TaskType::TaskUpload, model.GetName(), model.GetLastUploadTime(), now, true));
        }
    });
    ForEachModel([&](const Model_t& model) {
        if (model.GetDeletionPolicy() == due) {
            TaskQueue.Push(MakeTask(TaskType::TaskDelete, model.GetName(), 0, now, true));
        }
    });
}
