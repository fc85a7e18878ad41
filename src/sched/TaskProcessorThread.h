#pragma once

#include "host/thread/LumThread.h"

/// Runs the tasks of TaskQueue, one at a time, in queue order: empties the queue, sleeps 10 seconds, empties
/// it again. The queue's only consumer. A cancellation takes effect once the queue is empty.
class TaskProcessorThread : public LumThread {
public:
    TaskProcessorThread() = default;
    TaskProcessorThread(const TaskProcessorThread&) = delete;
    TaskProcessorThread& operator=(const TaskProcessorThread&) = delete;
    ~TaskProcessorThread() override { WaitForEnd(); }

    void ThreadMain() override;
};

extern TaskProcessorThread ProcessorThread;
