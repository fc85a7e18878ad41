#include "tasks/Task.h"

#include <new>

std::unique_ptr<Task_t> MakeTask(TaskType type, const LumString& modelName, LumSeconds previousTimestamp,
                                 LumSeconds timestamp, bool scheduled) {
    try {
        return std::make_unique<Task_t>(type, modelName, previousTimestamp, timestamp, scheduled);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

PtrTaskQueue_t::~PtrTaskQueue_t() {
    for (std::unique_ptr<Task_t> task; Pop(task);) {
    }
}

bool PtrTaskQueue_t::Push(std::unique_ptr<Task_t> task) {
    if (task == nullptr) {
        return false;
    }
    tasks_.AddEntry(task.get());
    static_cast<void>(task.release());  // the list has it now
    return true;
}

bool PtrTaskQueue_t::Pop(std::unique_ptr<Task_t>& task) {
    if (tasks_.GetCount() == 0) {
        return false;
    }
    task.reset(static_cast<Task_t*>(tasks_.RemoveEntry(1)));
    return true;
}
