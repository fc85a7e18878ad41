#include "sched/TaskSchedulerThread.h"

#include <memory>
#include <string_view>

#include "host/log/LumDebug.h"
#include "host/time/LumTime.h"
#include "model/Model.h"
#include "model/ModelElement.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "tasks/Task.h"

namespace {

constexpr std::string_view kRoutine = "TaskSchedulerThread::ThreadMain";
constexpr uint32_t kPauseMs = 10000;

/// The period whose change makes the stored timestamp be written.
constexpr uint32_t kMinutePeriod = 0;

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
    ModuleDebug.TraceWithNL("%S: Entering", kRoutine);
    Initialise();
    while (!CheckCancelled(false)) {
        RunCycle(std::time(nullptr));
        if (CheckCancelled(false)) {
            return;
        }
        Pause(kPauseMs);
    }
}

void TaskSchedulerThread::Initialise() {
    if (ReadLastTimestamp(lastTimestamp_)) {
        ModuleDebug.PrintWithNL("%S: Last timestamp has been read with success (%ld)", kRoutine,
                                int64_t{lastTimestamp_});
    } else {
        ModuleDebug.WarningWithNL("%S: Failed to read last timestamp", kRoutine);
        lastTimestamp_ = 0;
    }
    if (lastTimestamp_ == 0) {
        lastTimestamp_ = static_cast<int32_t>(std::time(nullptr));
        ModuleDebug.PrintWithNL("%S: Initializing last timestamp (%ld)", kRoutine, int64_t{lastTimestamp_});
        KeepLastTimestamp(lastTimestamp_);
    }
}

void TaskSchedulerThread::RunCycle(std::time_t now) {
    const std::array<bool, kPeriodCount> changed = ChangedPeriods(LocalTime(lastTimestamp_), LocalTime(now));
    lastTimestamp_ = static_cast<int32_t>(now);
    for (uint32_t period = 0; period < kPeriodCount; ++period) {
        if (changed[period]) {
            QueueDueTasks(period);
        }
    }
    if (changed[kMinutePeriod]) {
        KeepLastTimestamp(lastTimestamp_);
    }
}

bool TaskSchedulerThread::ReadLastTimestamp(int32_t& timestamp) {
    DatabaseScope scope("ReadLastTimestamp");
    if (!scope.IsLocked()) {
        return false;
    }
    const GenSqlResult* const rows = scope.Query("SELECT S_Timestamp FROM Scheduler;");
    scope.Unlock();
    if (rows == nullptr) {
        return false;
    }
    int64_t stored = 0;
    static_cast<void>(rows->GetColumn(0, stored));  // a table without its row reads as a first start
    timestamp = static_cast<int32_t>(stored);
    return true;
}

bool TaskSchedulerThread::WriteLastTimestamp(int32_t timestamp) {
    LumString statement;
    statement.Printf("UPDATE Scheduler SET S_Timestamp=%ld;", int64_t{timestamp});
    DatabaseScope scope("WriteLastTimestamp");
    return scope.IsLocked() && scope.Query(statement) != nullptr;
}

void TaskSchedulerThread::KeepLastTimestamp(int32_t timestamp) {
    if (!WriteLastTimestamp(timestamp)) {
        ModuleDebug.WarningWithNL("%S: Failed to write last timestamp (%ld)", kRoutine, int64_t{timestamp});
    }
}

void TaskSchedulerThread::QueueDueTasks(uint32_t period) const {
    const auto due = static_cast<Policy>(period + 1);
    const auto now = static_cast<uint32_t>(lastTimestamp_);
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
