#include <memory>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "sched/TaskProcessorThread.h"
#include "support/FileStoreStandIn.h"
#include "support/StartedModule.h"

namespace {

class TaskProcessorThreadTest : public testing::Test, protected StartedModule {
protected:
    static void Queue(TaskType type, const char* model, uint32_t timestamp = 100) {
        TaskQueue.Push(MakeTask(type, model, 0, timestamp, false));
    }
    /// Runs the thread until the log has the line of the last task.
    void RunUntil(const char* level, const std::string& text) {
        TaskProcessorThread thread;
        ASSERT_TRUE(thread.Start(nullptr, nullptr));
        while (Log().Count(std::string(level) + " " + text + "\n") == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_TRUE(thread.Cancel(3000, true));
    }
};

TEST_F(TaskProcessorThreadTest, RunsTheTasksOfAModelInTheirOrder) {
    const auto model = Add({.name = "A"});
    Change("INSERT INTO Event_A (E_Date, E_DeviceId, E_GroupId) VALUES (50, 0, 0)");
    const FileStoreStandIn received;
    Queue(TaskType::TaskAggregate, "A");
    Queue(TaskType::TaskUpload, "A");
    Queue(TaskType::TaskDelete, "A");
    RunUntil("trace", "DeleteEvents: Events have been deleted with success for model 'A'");
    EXPECT_EQ(
        Log().Count("warning AggregateEvents: Aggregation cannot be invoked for non automatic model 'A'\n"),
        1U);
    EXPECT_EQ(received.Files().size(), 1U);  // read before they were deleted
    EXPECT_EQ(Rows("SELECT count(*) FROM Event_A"), "0");
}

TEST_F(TaskProcessorThreadTest, DropsATaskWhoseModelIsGoneAndGoesOn) {
    Add({.name = "A"});
    Queue(TaskType::TaskUpload, "AModelWhoseNameIsLongEnoughToLieInMemoryOfItsOwn");
    Queue(TaskType::TaskDelete, "A");
    RunUntil("trace", "DeleteEvents: Events have been deleted with success for model 'A'");
    EXPECT_EQ(Log().Count("error TaskProcessorThread::ThreadMain: Failed to get model "
                          "'AModelWhoseNameIsLongEnoughToLieInMemoryOfItsOwn'\n"),
              1U);
}

/// A task that says when it is destroyed.
struct CountedTask : Task_t {
    CountedTask(const char* model, int& gone)
        : Task_t(TaskType::TaskDelete, model, 0, 100, false), gone_(gone) {}
    CountedTask(const CountedTask&) = delete;
    CountedTask& operator=(const CountedTask&) = delete;
    ~CountedTask() override { ++gone_; }

private:
    int& gone_;
};

TEST(TaskProcessorThreadTasks, AreDestroyedButForThoseWhoseModelIsGone) {
    const LinkedModule module;
    LinkedModule::Initialise();
    LinkedModule::KeepErrorsFromAlerts();
    static_cast<void>(LinkedModule::Add({.name = "A"}));
    // The one that stays may outlive the test.
    static int done = 0;
    static int unknown = 0;
    TaskQueue.Push(std::make_unique<CountedTask>("A", done));
    TaskQueue.Push(std::make_unique<CountedTask>("Nobody", unknown));
    TaskProcessorThread thread;
    thread.RunCycle();
    EXPECT_EQ(TaskQueue.GetCount(), 0U);
    EXPECT_EQ(done, 1);
    EXPECT_EQ(unknown, 0);
}

TEST_F(TaskProcessorThreadTest, RunsNothingForAKindThatItDoesNotKnow) {
    Add({.name = "A"});
    Queue(static_cast<TaskType>(0), "A");
    Queue(static_cast<TaskType>(4), "A");
    Queue(TaskType::TaskDelete, "A");
    RunUntil("trace", "DeleteEvents: Events have been deleted with success for model 'A'");
    EXPECT_EQ(Log().Count("trace UploadEvents: Entering\n"), 0U);
    EXPECT_EQ(Log().Count("trace AggregateEvents: Entering\n"), 0U);
}

TEST_F(TaskProcessorThreadTest, EmptiesTheQueueBeforeItEnds) {
    Add({.name = "A"});
    constexpr int kTasks = 50;
    for (int i = 0; i < kTasks; ++i) {
        Queue(TaskType::TaskDelete, "A");
    }
    TaskProcessorThread thread;
    ASSERT_TRUE(thread.Start(nullptr, nullptr));
    while (Log().Count("trace DeleteEvents: Entering\n") == 0) {
        std::this_thread::yield();
    }
    thread.Cancel(0, true);
    thread.WaitForEnd();
    EXPECT_EQ(Log().Count("trace DeleteEvents: Entering\n"), kTasks);
}

TEST_F(TaskProcessorThreadTest, LetsADeletionWaitForAnUploadThatIsUnderWay) {
    Add({.name = "A"});
    Change("INSERT INTO Event_A (E_Date, E_DeviceId, E_GroupId) VALUES (50, 0, 0)");
    TaskProcessorThread thread;
    Queue(TaskType::TaskUpload, "A", 60);
    Queue(TaskType::TaskDelete, "A", 70);
    Queue(TaskType::TaskDelete, "A", 90);
    Queue(TaskType::TaskDelete, "A", 80);
    thread.RunCycle();  // there is no file store
    thread.RunCycle();
    EXPECT_EQ(Rows("SELECT count(*) FROM Event_A"), "1");
    EXPECT_EQ(
        Log().Count("warning TaskProcessorThread::ThreadMain: The deletion of events of model 'A' waits "
                    "until they have been sent\n"),
        1U);
    const FileStoreStandIn received;
    thread.RunCycle();
    EXPECT_EQ(received.Files().size(), 1U);
    EXPECT_EQ(Rows("SELECT count(*) FROM Event_A"), "0");
    EXPECT_EQ(Log().Count("trace DeleteEvents: Entering\n"), 1U);
}

TEST_F(TaskProcessorThreadTest, LeavesTheQueueAloneWhileItIsNotReady) {
    Add({.name = "A"});
    static bool isReady = false;
    TaskProcessorThread thread;
    thread.SetReady([] { return isReady; });
    Queue(TaskType::TaskDelete, "A");
    thread.RunCycle();
    EXPECT_EQ(Log().Count("trace DeleteEvents: Entering\n"), 0U);
    isReady = true;
    thread.RunCycle();
    EXPECT_EQ(Log().Count("trace DeleteEvents: Entering\n"), 1U);
}

TEST_F(TaskProcessorThreadTest, LeavesTheQueueAloneWhenItWasCancelledBefore) {
    Add({.name = "A"});
    TaskProcessorThread thread;
    thread.Cancel(0, true);
    Queue(TaskType::TaskDelete, "A");
    thread.ThreadMain();
    EXPECT_EQ(TakeTasks().size(), 1U);
}

}  // namespace
