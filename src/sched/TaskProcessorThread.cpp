#include "sched/TaskProcessorThread.h"

#include <memory>
#include <string_view>
#include <utility>

#include "events/EventAggregation.h"
#include "events/EventRetention.h"
#include "events/EventUpload.h"
#include "host/log/LumDebug.h"
#include "model/Model.h"
#include "model/ModelElement.h"
#include "model/ModuleLog.h"
#include "tasks/Task.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "TaskProcessorThread::ThreadMain");
constexpr uint32_t kPauseMs = 10000;

/// Gives a task up without destroying it. The record of a task that found no model stays in memory as it was,
/// where a dump of the process still shows it; that such a task is rare keeps the cost bounded. The leak
/// checker is told of this one object, and with it of what the object owns, and of nothing else.
void Abandon(std::unique_ptr<Task_t> task) {
    [[maybe_unused]] const Task_t* const abandoned = task.release();
#if defined(__SANITIZE_ADDRESS__)
    __lsan_ignore_object(abandoned);
#endif
}

/// The routines say their failures themselves, and the next task does not depend on this one.
void RunTask(const Task_t& task, const std::shared_ptr<Model_t>& model) {
    switch (task.GetType()) {
        case TaskType::TaskAggregate:
            AggregateEvents(model, task.GetPreviousTimestamp(), task.GetTimestamp(), task.IsScheduled());
            break;
        case TaskType::TaskUpload:
            UploadEvents(model, task.GetPreviousTimestamp(), task.GetTimestamp(), task.IsScheduled());
            break;
        case TaskType::TaskDelete:
            DeleteEvents(model, task.GetPreviousTimestamp(), task.GetTimestamp(), task.IsScheduled());
            break;
    }
}

void DrainQueue() {
    for (std::unique_ptr<Task_t> task; TaskQueue.Pop(task);) {
        std::shared_ptr<Model_t> model;
        if (!ModelCollection.Get(task->GetModelName(), model)) {
            kRoutine.Error("Failed to get model '%S'", task->GetModelName());
            Abandon(std::move(task));
            continue;
        }
        RunTask(*task, model);
    }
}

}  // namespace

void TaskProcessorThread::ThreadMain() {
    kRoutine.Trace("Entering");
    while (!CheckCancelled(false)) {
        DrainQueue();
        if (CheckCancelled(false)) {
            return;
        }
        Pause(kPauseMs);
    }
}
