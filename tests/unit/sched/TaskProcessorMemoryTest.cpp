#include <atomic>
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "sched/TaskProcessorThread.h"
#include "support/ModuleHarness.h"

namespace {

/// Allocations are counted while this is armed, and the one whose turn it is fails.
std::atomic<bool> armed{false};
std::atomic<uint64_t> allocations{0};
std::atomic<uint64_t> failingTurn{0};

void* Allocate(std::size_t size) {
    const bool fails = armed && ++allocations == failingTurn;
    void* const memory = fails ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

// The program's own allocator, so that memory can run out where a test wants it. Inlined, the two halves of a
// pair would look to the compiler as if they did not belong together.
[[gnu::noinline]] void* operator new(std::size_t size) {
    return Allocate(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace {

/// An upload and a deletion of the same events, each time without another one of the blocks of memory that
/// they ask for. Whichever it is, the thread goes on, and nothing is deleted that was not sent.
TEST(TaskProcessorThreadMemory, RunsOutAnywhereAndTheEventsAreSentAllTheSame) {
    const ModuleHarness module;
    const auto model = module.Add({.name = "A", .params = {Param("User", ParamType::kString)}});
    FileStoreStandIn received;
    uint64_t calls = 1;
    for (uint64_t turn = 1; turn <= calls; turn += turn < 20 ? 1 : 13) {
        static_cast<void>(received.TakeFiles());
        const auto now = static_cast<LumSeconds>(turn * 10);
        ModuleHarness::Sql("INSERT INTO Event_A VALUES (NULL, " + std::to_string(now) + ", 0, 0, 0, 'u')");
        TaskProcessorThread thread;
        TaskQueue.Push(MakeTask(TaskType::TaskUpload, "A", 0, now + 5, false));
        TaskQueue.Push(MakeTask(TaskType::TaskDelete, "A", 0, now + 5, false));
        allocations = 0;
        failingTurn = turn;
        armed = true;
        thread.RunCycle();
        armed = false;
        calls = std::max<uint64_t>(calls, allocations);
        thread.RunCycle();
        EXPECT_GE(received.Files().size(), 1U) << turn;
        EXPECT_EQ(ModuleHarness::Sql("SELECT count(*) FROM Event_A"), "0") << turn;
        ASSERT_FALSE(testing::Test::HasFailure());
    }
    EXPECT_GT(calls, 100U);
}

}  // namespace
