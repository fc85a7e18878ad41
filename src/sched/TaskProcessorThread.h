#pragma once

#include <memory>
#include <vector>

#include "host/thread/LumThread.h"
#include "tasks/Task.h"

/// Runs the tasks of TaskQueue, one at a time, in queue order: empties the queue, sleeps 10 seconds, empties
/// it again. The queue's only consumer. A cancellation takes effect once the queue is empty. Before each
/// time, uploads that were cut off go on; a deletion that would take away what they have to send waits for
/// them.
///
/// A task that runs out of memory, or throws for another reason, is one error line and runs again in the next
/// cycle; the next task runs at once, but a deletion waits.
class TaskProcessorThread : public LumThread {
public:
    TaskProcessorThread() = default;
    TaskProcessorThread(const TaskProcessorThread&) = delete;
    TaskProcessorThread& operator=(const TaskProcessorThread&) = delete;
    ~TaskProcessorThread() override { WaitForEnd(); }

    void ThreadMain() override;

    /// Has a cycle do nothing while `isReady` says no. To be called before Start.
    void SetReady(bool (*isReady)()) { isReady_ = isReady; }

    /// One cycle: what waited, then the queue.
    void RunCycle();

private:
    void RunQueue();
    void RunWaiting();
    /// Runs the task, or keeps it for the next cycle: true where it is kept as the first of its kind.
    [[nodiscard]] bool Take(std::unique_ptr<Task_t> task);
    /// Looks the task's model up and runs its routine; `task` is null afterwards unless it has to wait.
    void Run(std::unique_ptr<Task_t>& task);
    /// Makes room for one more that waits, before it is taken out of the queue: so none gets lost for want of
    /// memory.
    void MakeRoomToKeep();
    /// Needs no memory: there is room.
    [[nodiscard]] bool Keep(std::unique_ptr<Task_t> task);
    /// True where a task other than a deletion has to run again.
    [[nodiscard]] bool IsBehind() const;

    bool (*isReady_)() = nullptr;
    /// What waits for the next cycle: of a model and a kind one task that was scheduled and one that was not,
    /// the latest. Used on the thread alone.
    std::vector<std::unique_ptr<Task_t>> waiting_;
};

extern TaskProcessorThread ProcessorThread;
