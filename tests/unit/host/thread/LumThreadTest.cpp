#include <atomic>
#include <future>
#include <memory>
#include <thread>

#include <gtest/gtest.h>
#include <pthread.h>

#include "host/thread/LumThread.h"
namespace {

constexpr uint32_t kLong = 60'000;

/// A promise that one thread keeps and another waits for.
class Signal {
public:
    void Give() { promise_.set_value(); }
    void Await() { promise_.get_future().wait(); }

private:
    std::promise<void> promise_;
};

/// Runs until it is cancelled, in long pauses.
class Sleeper : public LumThread {
public:
    Sleeper() = default;
    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;
    ~Sleeper() override { WaitForEnd(); }

    void ThreadMain() override {
        begun.Give();
        while (!CheckCancelled(false)) {
            Pause(kLong);
        }
        ended = true;
    }

    Signal begun;
    std::atomic<bool> ended{false};
};

/// Takes no notice of being cancelled until it is let go.
class Stubborn : public LumThread {
public:
    explicit Stubborn(std::atomic<bool>& ended) : ended_(ended) {}
    Stubborn(const Stubborn&) = delete;
    Stubborn& operator=(const Stubborn&) = delete;
    ~Stubborn() override { WaitForEnd(); }

    void ThreadMain() override {
        letGo.Await();
        ended_ = true;
    }

    Signal letGo;

private:
    std::atomic<bool>& ended_;
};

/// Ends with its first pause.
class OnePause : public LumThread {
public:
    OnePause() = default;
    OnePause(const OnePause&) = delete;
    OnePause& operator=(const OnePause&) = delete;
    ~OnePause() override { WaitForEnd(); }

    void ThreadMain() override {
        ranOut = Pause(kLong);
        ended = true;
    }

    std::atomic<bool> ranOut{true};
    std::atomic<bool> ended{false};
};

/// While it lives new threads ask for a stack that no address space has room for.
class HugeStacks {
public:
    HugeStacks() {
        pthread_getattr_default_np(&attributes_);
        size_t size = 0;
        pthread_attr_getstacksize(&attributes_, &size);
        pthread_attr_setstacksize(&attributes_, size_t{1} << 47U);
        pthread_setattr_default_np(&attributes_);
        pthread_attr_setstacksize(&attributes_, size);
    }
    HugeStacks(const HugeStacks&) = delete;
    HugeStacks& operator=(const HugeStacks&) = delete;
    ~HugeStacks() {
        pthread_setattr_default_np(&attributes_);
        pthread_attr_destroy(&attributes_);
    }

private:
    pthread_attr_t attributes_{};
};

uint32_t Count(void* argument) {
    ++*static_cast<std::atomic<int>*>(argument);
    return 0;
}

}  // namespace

TEST(LumThread, RunsItsOwnMainRoutine) {
    Sleeper thread;
    ASSERT_TRUE(thread.Start(nullptr, nullptr));
    thread.begun.Await();
    EXPECT_FALSE(thread.CheckCancelled(false));
    EXPECT_TRUE(thread.Cancel(kLong, true));
    EXPECT_TRUE(thread.ended);
    EXPECT_TRUE(thread.CheckCancelled(false));
}

TEST(LumThread, RunsARoutineThatItIsHanded) {
    std::atomic<int> count{0};
    LumThread thread;
    ASSERT_TRUE(thread.Start(Count, &count));
    thread.WaitForEnd();
    EXPECT_EQ(count, 1);
}

TEST(LumThread, TheMainRoutineOfTheBaseClassDoesNothing) {
    LumThread thread;
    EXPECT_TRUE(thread.Start(nullptr, nullptr));
    EXPECT_TRUE(thread.Cancel(kLong, true));
}

TEST(LumThread, MayBeStartedAgainOnceItHasEnded) {
    std::atomic<int> count{0};
    LumThread thread;
    for (int i = 1; i <= 3; ++i) {
        ASSERT_TRUE(thread.Start(Count, &count));
        ASSERT_TRUE(thread.Cancel(kLong, false));
        EXPECT_EQ(count, i);
    }
}

TEST(LumThread, MayBeStartedAgainWithoutACancel) {
    std::atomic<int> count{0};
    LumThread thread;
    ASSERT_TRUE(thread.Start(Count, &count));
    while (!thread.Start(Count, &count)) {
        std::this_thread::yield();
    }
    thread.WaitForEnd();
    EXPECT_EQ(count, 2);
}

TEST(LumThread, AStartForgetsAnEarlierCancel) {
    Signal letGo;
    LumThread thread;
    EXPECT_TRUE(thread.Cancel(0, true)) << "never started";
    EXPECT_TRUE(thread.CheckCancelled(false));
    ASSERT_TRUE(thread.Start(
        [](void* argument) -> uint32_t {
            static_cast<Signal*>(argument)->Await();
            return 0;
        },
        &letGo));
    EXPECT_FALSE(thread.CheckCancelled(false));
    letGo.Give();
}

TEST(LumThread, CannotBeStartedWhileItRuns) {
    Sleeper thread;
    ASSERT_TRUE(thread.Start(nullptr, nullptr));
    EXPECT_FALSE(thread.Start(nullptr, nullptr));
    thread.begun.Await();
    EXPECT_TRUE(thread.Cancel(kLong, true));
}

TEST(LumThread, ACancelThatRunsOutOfTimeSaysSoAndTheThreadGoesOn) {
    std::atomic<bool> ended{false};
    {
        Stubborn thread(ended);
        ASSERT_TRUE(thread.Start(nullptr, nullptr));
        EXPECT_FALSE(thread.Cancel(5, true));
        EXPECT_FALSE(thread.Start(nullptr, nullptr));
        EXPECT_FALSE(ended);
        thread.letGo.Give();
    }
    EXPECT_TRUE(ended) << "the object was gone before its thread";
}

TEST(LumThread, DestroyingTheObjectEndsAPause) {
    auto thread = std::make_unique<Sleeper>();
    ASSERT_TRUE(thread->Start(nullptr, nullptr));
    thread->begun.Await();
    thread.reset();
}

TEST(LumThread, ACancelMayLeaveAPauseAlone) {
    OnePause thread;
    ASSERT_TRUE(thread.Start(nullptr, nullptr));
    EXPECT_FALSE(thread.Cancel(20, false));
    EXPECT_TRUE(thread.CheckCancelled(false));
    EXPECT_FALSE(thread.ended);
    EXPECT_TRUE(thread.Cancel(kLong, true));
    EXPECT_TRUE(thread.ended);
    EXPECT_FALSE(thread.ranOut);
}

TEST(LumThread, APauseAfterACancelIsNone) {
    LumThread thread;
    EXPECT_TRUE(thread.Pause(1));
    EXPECT_TRUE(thread.Cancel(0, false));
    EXPECT_TRUE(thread.Pause(1)) << "pauses were to run to their end";
    EXPECT_TRUE(thread.Cancel(0, true));
    EXPECT_TRUE(thread.Cancel(0, false)) << "does not take back the end of pauses";
    EXPECT_FALSE(thread.Pause(kLong));
}

TEST(LumThread, ACancelCanBeForgotten) {
    LumThread thread;
    EXPECT_FALSE(thread.CheckCancelled(true));
    EXPECT_TRUE(thread.Cancel(0, true));
    EXPECT_TRUE(thread.CheckCancelled(false));
    EXPECT_TRUE(thread.CheckCancelled(true));
    EXPECT_FALSE(thread.CheckCancelled(false));
    EXPECT_TRUE(thread.Pause(1));
}

TEST(LumThread, SaysThatTheSystemRefusesAThread) {
    std::atomic<int> count{0};
    LumThread thread;
    {
        const HugeStacks refused;
        EXPECT_FALSE(thread.Start(Count, &count));
    }
    EXPECT_TRUE(thread.Start(Count, &count));
    EXPECT_TRUE(thread.Cancel(kLong, true));
    EXPECT_EQ(count, 1);
}
