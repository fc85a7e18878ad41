#include <algorithm>

#include <gtest/gtest.h>

#include "sched/TaskProcessorThread.h"
#include "support/FileStoreStandIn.h"
#include "support/MemoryFault.h"
#include "support/StartedModule.h"

namespace {

/// An upload and a deletion of the same events, each time without another one of the blocks of memory that
/// they ask for. Whichever it is, the thread goes on, and nothing is deleted that was not sent.
TEST(TaskProcessorThreadMemory, RunsOutAnywhereAndTheEventsAreSentAllTheSame) {
    StartedModule module;
    const auto model = module.Add({.name = "A", .params = {{"User"}}});
    FileStoreStandIn received;
    uint64_t calls = 1;
    for (uint64_t turn = 1; turn <= calls; turn += turn < 20 ? 1 : 13) {
        static_cast<void>(received.TakeFiles());
        const auto now = static_cast<LumSeconds>(turn * 10);
        module.Change("INSERT INTO Event_A VALUES (NULL, " + std::to_string(now) + ", 0, 0, 0, 'u')");
        TaskProcessorThread thread;
        TaskQueue.Push(MakeTask(TaskType::TaskUpload, "A", 0, now + 5, false));
        TaskQueue.Push(MakeTask(TaskType::TaskDelete, "A", 0, now + 5, false));
        {
            const MemoryFault fault(turn);
            thread.RunCycle();
        }
        calls = std::max(calls, MemoryFault::Count());
        thread.RunCycle();
        EXPECT_GE(received.Files().size(), 1U) << turn;
        EXPECT_EQ(module.Rows("SELECT count(*) FROM Event_A"), "0") << turn;
        ASSERT_FALSE(testing::Test::HasFailure());
    }
    EXPECT_GT(calls, 100U);
}

}  // namespace
