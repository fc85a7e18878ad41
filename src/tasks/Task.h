#pragma once

#include <cstdint>
#include <memory>

#include "host/collection/NodeList.h"
#include "host/text/LumString.h"
#include "host/time/LumTime.h"

/// The kinds of periodic work.
enum class TaskType : int32_t {
    TaskAggregate = 1,
    TaskUpload = 2,
    TaskDelete = 3,
};

/// One piece of work on the events of one model. Constant after construction.
struct Task_t {
    /// `previousTimestamp` is the model's last aggregation or upload time,
    /// or 0 for a deletion; `timestamp` the moment the task stands for; `scheduled` tells the scheduler's
    /// tasks, which are cut to whole periods, from those of an action, which are not.
    Task_t(TaskType type, const LumString& modelName, LumSeconds previousTimestamp, LumSeconds timestamp,
           bool scheduled)
        : type_(type),
          modelName_(modelName),
          previousTimestamp_(previousTimestamp),
          timestamp_(timestamp),
          scheduled_(scheduled) {}
    Task_t(const Task_t&) = delete;
    Task_t& operator=(const Task_t&) = delete;
    virtual ~Task_t() = default;

    [[nodiscard]] TaskType GetType() const { return type_; }
    [[nodiscard]] const LumString& GetModelName() const { return modelName_; }
    [[nodiscard]] LumSeconds GetPreviousTimestamp() const { return previousTimestamp_; }
    [[nodiscard]] LumSeconds GetTimestamp() const { return timestamp_; }
    [[nodiscard]] bool IsScheduled() const { return scheduled_; }

private:
    const TaskType type_;
    const LumString modelName_;
    const LumSeconds previousTimestamp_;
    const LumSeconds timestamp_;
    const bool scheduled_;
};

/// A new task, or null where there is no memory for it: the queue refuses that, and a due task is lost in
/// silence.
[[nodiscard]] std::unique_ptr<Task_t> MakeTask(TaskType type, const LumString& modelName,
                                               LumSeconds previousTimestamp, LumSeconds timestamp,
                                               bool scheduled);

/// Tasks in the order in which they were pushed. Push may be called from any thread, Pop from one: what Pop
/// finds in the list must still be there when it takes it.
class PtrTaskQueue_t {
public:
    PtrTaskQueue_t() { tasks_.SetMtSafeEnable(true); }
    PtrTaskQueue_t(const PtrTaskQueue_t&) = delete;
    PtrTaskQueue_t& operator=(const PtrTaskQueue_t&) = delete;
    /// Destroys the tasks that are left.
    virtual ~PtrTaskQueue_t();

    /// Takes the task over; false for null.
    bool Push(std::unique_ptr<Task_t> task);
    /// Gives the oldest task out; false, and `task` untouched, where there is none.
    [[nodiscard]] bool Pop(std::unique_ptr<Task_t>& task);
    /// How many wait. From any thread.
    [[nodiscard]] uint32_t GetCount() const { return tasks_.GetCount(); }

private:
    NodeList tasks_;
};

/// What the scheduler and the actions queue and the processor works off.
extern PtrTaskQueue_t TaskQueue;
