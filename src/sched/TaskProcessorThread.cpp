#include "sched/TaskProcessorThread.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <string_view>
#include <utility>

#include "events/EventAggregation.h"
#include "events/EventRetention.h"
#include "events/EventUpload.h"
#include "events/UploadBacklog.h"
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

/// Runs `body`; what it throws is one error line.
template <class Body>
void RunGuarded(std::string_view what, Body&& body) {
    try {
        std::forward<Body>(body)();
    } catch (const std::exception& error) {
        kRoutine.Error("%S ended with an exception: %s", what, error.what());
    }
}

}  // namespace

void TaskProcessorThread::ThreadMain() {
    kRoutine.Trace("Entering");
    while (!CheckCancelled(false)) {
        RunCycle();
        if (CheckCancelled(false)) {
            return;
        }
        Pause(kPauseMs);
    }
}

void TaskProcessorThread::RunCycle() {
    bool isReady = false;
    RunGuarded("Reading the settings", [&] { isReady = isReady_ == nullptr || isReady_(); });
    if (!isReady) {
        return;
    }
    RunGuarded("Resuming the uploads", [] { ResumeUploads(); });
    RunGuarded("Looking at the tasks that wait", [this] { RunWaiting(); });
    RunGuarded("Looking at the queue", [this] { RunQueue(); });
}

void TaskProcessorThread::RunWaiting() {
    std::vector<std::unique_ptr<Task_t>> waiting;
    waiting.reserve(waiting_.size());  // room for all of them to wait again
    waiting.swap(waiting_);
    for (std::unique_ptr<Task_t>& task : waiting) {
        static_cast<void>(Take(std::move(task)));  // that it waits was said before
    }
}

void TaskProcessorThread::RunQueue() {
    std::unique_ptr<Task_t> task;
    for (MakeRoomToKeep(); TaskQueue.Pop(task); MakeRoomToKeep()) {
        if (Take(std::exchange(task, nullptr))) {
            const Task_t& kept = *waiting_.back();
            if (kept.GetType() == TaskType::TaskDelete) {
                kRoutine.Warning("The deletion of events of model '%S' waits until they have been sent",
                                 kept.GetModelName());
            }
        }
    }
}

void TaskProcessorThread::MakeRoomToKeep() {
    if (waiting_.size() == waiting_.capacity()) {
        waiting_.reserve(2 * waiting_.size() + 1);
    }
}

bool TaskProcessorThread::Take(std::unique_ptr<Task_t> task) {
    RunGuarded("A task", [&] { Run(task); });
    return task != nullptr && Keep(std::move(task));
}

void TaskProcessorThread::Run(std::unique_ptr<Task_t>& task) {
    const LumString& name = task->GetModelName();
    std::shared_ptr<Model_t> model;
    if (!ModelCollection.Get(name, model)) {
        kRoutine.Error("Failed to get model '%S'", name);
        Abandon(std::exchange(task, nullptr));
        return;
    }
    if (task->GetType() == TaskType::TaskDelete && (UploadBacklog.IsOpen(name) || IsBehind())) {
        return;
    }
    RunTask(*task, model);
    task.reset();
}

bool TaskProcessorThread::IsBehind() const {
    return std::any_of(waiting_.begin(), waiting_.end(), [](const std::unique_ptr<Task_t>& task) {
        return task->GetType() != TaskType::TaskDelete;
    });
}

bool TaskProcessorThread::Keep(std::unique_ptr<Task_t> task) {
    for (std::unique_ptr<Task_t>& kept : waiting_) {
        if (kept->GetType() == task->GetType() && kept->GetModelName() == task->GetModelName() &&
            kept->IsScheduled() == task->IsScheduled()) {
            if (task->GetTimestamp() > kept->GetTimestamp()) {
                kept = std::move(task);
            }
            return false;
        }
    }
    waiting_.push_back(std::move(task));
    return true;
}
