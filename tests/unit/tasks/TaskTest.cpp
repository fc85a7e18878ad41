#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tasks/Task.h"

namespace {

struct CountedTask : Task_t {
    explicit CountedTask(int& destroyed)
        : Task_t(TaskType::TaskDelete, "Model", 0, 1, false), destroyed_(destroyed) {}
    CountedTask(const CountedTask&) = delete;
    CountedTask& operator=(const CountedTask&) = delete;
    ~CountedTask() override { ++destroyed_; }

private:
    int& destroyed_;
};

TEST(Task, KeepsWhatItIsMadeOf) {
    const std::unique_ptr<Task_t> task = MakeTask(TaskType::TaskUpload, "Logon", 7, 0xFFFFFFFF, true);
    EXPECT_EQ(task->GetType(), TaskType::TaskUpload);
    EXPECT_TRUE(task->GetModelName() == "Logon");
    EXPECT_EQ(task->GetPreviousTimestamp(), 7U);
    EXPECT_EQ(task->GetTimestamp(), 0xFFFFFFFF);
    EXPECT_TRUE(task->IsScheduled());
}

TEST(Task, HasFixedNumbersForItsKinds) {
    EXPECT_EQ(static_cast<int32_t>(TaskType::TaskAggregate), 1);
    EXPECT_EQ(static_cast<int32_t>(TaskType::TaskUpload), 2);
    EXPECT_EQ(static_cast<int32_t>(TaskType::TaskDelete), 3);
}

TEST(TaskQueue, GivesTasksOutInTheOrderInWhichTheyCame) {
    PtrTaskQueue_t queue;
    for (uint32_t i = 0; i < 5; ++i) {
        EXPECT_TRUE(queue.Push(MakeTask(TaskType::TaskUpload, "Logon", 0, i, false)));
    }
    for (uint32_t i = 0; i < 5; ++i) {
        std::unique_ptr<Task_t> task;
        ASSERT_TRUE(queue.Pop(task));
        EXPECT_EQ(task->GetTimestamp(), i);
    }
}

TEST(TaskQueue, LeavesTheOutputAloneWhenItIsEmpty) {
    PtrTaskQueue_t queue;
    std::unique_ptr<Task_t> task = MakeTask(TaskType::TaskUpload, "Logon", 0, 1, false);
    const Task_t* const before = task.get();
    EXPECT_FALSE(queue.Pop(task));
    EXPECT_EQ(task.get(), before);
}

TEST(TaskQueue, RefusesNull) {
    PtrTaskQueue_t queue;
    EXPECT_FALSE(queue.Push(nullptr));
    std::unique_ptr<Task_t> task;
    EXPECT_FALSE(queue.Pop(task));
}

TEST(TaskQueue, DestroysWhatIsLeftOnce) {
    int destroyed = 0;
    {
        PtrTaskQueue_t queue;
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(queue.Push(std::make_unique<CountedTask>(destroyed)));
        }
        std::unique_ptr<Task_t> task;
        EXPECT_TRUE(queue.Pop(task));
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 3);
}

TEST(TaskQueue, KeepsTheOrderOfEachProducer) {
    constexpr uint32_t kProducers = 4;
    constexpr uint32_t kTasks = 500;
    PtrTaskQueue_t queue;
    std::vector<std::thread> producers;
    for (uint32_t producer = 0; producer < kProducers; ++producer) {
        producers.emplace_back([&queue, producer] {
            for (uint32_t i = 0; i < kTasks; ++i) {
                EXPECT_TRUE(queue.Push(MakeTask(TaskType::TaskUpload, "Logon", producer, i, false)));
            }
        });
    }
    std::vector<uint32_t> next(kProducers, 0);
    for (uint32_t taken = 0; taken < kProducers * kTasks;) {
        std::unique_ptr<Task_t> task;
        if (queue.Pop(task)) {
            EXPECT_EQ(task->GetTimestamp(), next[task->GetPreviousTimestamp()]++);
            ++taken;
        }
    }
    for (std::thread& producer : producers) {
        producer.join();
    }
}

}  // namespace
