#include <atomic>

#include <gtest/gtest.h>

#include "agent/socket/internal/WorkerPool.h"
#include "support/MemoryFault.h"

namespace {

TEST(WorkerPool, FinishesWhatItWasGivenBeforeItEnds) {
    std::atomic<int> done = 0;
    WorkerPool pool(3);
    for (int i = 0; i < 100; ++i) {
        pool.Run([&done] { ++done; });
    }
    pool.Join();
    EXPECT_EQ(done, 100);
    EXPECT_EQ(pool.CountRunning(), 0U);
    EXPECT_EQ(pool.CountWaiting(), 0U);
    EXPECT_EQ(pool.GetStuckTime().count(), 0);
}

TEST(WorkerPool, WaitsForTheMemoryThatATaskTakes) {
    std::atomic<bool> isDone = false;
    WorkerPool pool(1);
    {
        const MemoryFault fault(1);
        pool.Run([&isDone] { isDone = true; });
    }
    pool.Join();
    EXPECT_TRUE(isDone);
}

}  // namespace
