#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/thread/LumMutex.h"

using std::chrono::microseconds;
using std::chrono::milliseconds;

namespace {

/// Tells whether a thread of its own gets the mutex within `patience`. The thread waits on until it does, so
/// the mutex must be free by the time the answer is destroyed.
class Contender {
public:
    explicit Contender(LumMutex& mutex)
        : locked_(std::async(std::launch::async, [&mutex] {
              const bool locked = mutex.Lock();
              if (locked) {
                  mutex.Unlock();
              }
              return locked;
          })) {}

    bool IsStillWaitingAfter(microseconds patience) {
        return locked_.wait_for(patience) == std::future_status::timeout;
    }
    bool GetsIn() { return locked_.get(); }

private:
    std::future<bool> locked_;
};

}  // namespace

TEST(LumMutex, KeepsOtherThreadsOut) {
    LumMutex mutex;
    ASSERT_TRUE(mutex.Lock());
    Contender contender(mutex);
    EXPECT_TRUE(contender.IsStillWaitingAfter(4 * LumMutex::kStarvingAfter));
    mutex.Unlock();
    EXPECT_TRUE(contender.GetsIn());
}

TEST(LumMutex, IsGivenBackWithTheLastUnlockOnly) {
    LumMutex mutex;
    ASSERT_TRUE(mutex.Lock());
    ASSERT_TRUE(mutex.Lock());
    Contender contender(mutex);
    mutex.Unlock();
    EXPECT_TRUE(contender.IsStillWaitingAfter(milliseconds(20)));
    mutex.Unlock();
    EXPECT_TRUE(contender.GetsIn());
}

TEST(LumMutex, CannotBeTakenMoreOftenThanTheLimit) {
    LumMutex mutex;
    for (uint32_t i = 0; i < LumMutex::kMaxDepth; ++i) {
        ASSERT_TRUE(mutex.Lock());
    }
    EXPECT_FALSE(mutex.Lock());
    {
        const LumMutexLock refused(mutex);
        EXPECT_FALSE(refused.IsHeld());
    }
    mutex.Unlock();
    EXPECT_TRUE(mutex.Lock()) << "the refused ones gave nothing back";
    for (uint32_t i = 1; i < LumMutex::kMaxDepth; ++i) {
        mutex.Unlock();
    }
    Contender contender(mutex);
    EXPECT_TRUE(contender.IsStillWaitingAfter(milliseconds(1)));
    mutex.Unlock();
    EXPECT_TRUE(contender.GetsIn());
}

TEST(LumMutex, AStrangersUnlockDoesNothing) {
    LumMutex mutex;
    mutex.Unlock();
    ASSERT_TRUE(mutex.Lock());
    std::thread([&mutex] { mutex.Unlock(); }).join();
    Contender contender(mutex);
    EXPECT_TRUE(contender.IsStillWaitingAfter(milliseconds(10)));
    mutex.Unlock();
    EXPECT_TRUE(contender.GetsIn());
    mutex.Unlock();
    EXPECT_TRUE(Contender(mutex).GetsIn());
}

TEST(LumMutex, GuardsWhatIsNotAtomic) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 2000;
    LumMutex mutex;
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int j = 0; j < kRounds; ++j) {
                const LumMutexLock outer(mutex);
                const LumMutexLock inner(mutex);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, kThreads * kRounds);
}

TEST(LumMutex, IsHandedToWhoHasWaitedLongAlthoughTheHolderComesBackAtOnce) {
    constexpr int kRounds = 10;
    LumMutex mutex;
    int handedOver = 0;
    for (int i = 0; i < kRounds; ++i) {
        std::atomic<bool> waiting{false};
        std::atomic<bool> entered{false};
        ASSERT_TRUE(mutex.Lock());
        std::thread waiter([&] {
            waiting = true;
            const LumMutexLock lock(mutex);
            entered = true;
        });
        while (!waiting) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(4 * LumMutex::kStarvingAfter);
        mutex.Unlock();
        ASSERT_TRUE(mutex.Lock());
        handedOver += entered ? 1 : 0;
        mutex.Unlock();
        waiter.join();
    }
    // On a busy machine a waiter may come too late to count as one; without handing over hardly any gets in.
    EXPECT_GE(handedOver, kRounds / 2);
}

TEST(LumMutex, ManyStarvingThreadsAllGetIn) {
    LumMutex mutex;
    std::atomic<int> entered{0};
    ASSERT_TRUE(mutex.Lock());
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 3; ++round) {
                const LumMutexLock lock(mutex);
                ++entered;
                std::this_thread::sleep_for(milliseconds(1));
            }
        });
    }
    std::this_thread::sleep_for(3 * LumMutex::kStarvingAfter);
    mutex.Unlock();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(entered, 24);
    EXPECT_TRUE(Contender(mutex).GetsIn());
}

TEST(LumMutexLock, HoldsTheMutexForItsOwnLifetime) {
    LumMutex mutex;
    auto lock = std::make_unique<LumMutexLock>(mutex);
    EXPECT_TRUE(lock->IsHeld());
    Contender contender(mutex);
    EXPECT_TRUE(contender.IsStillWaitingAfter(milliseconds(10)));
    lock.reset();
    EXPECT_TRUE(contender.GetsIn());
}

TEST(LumMutexOptionalLock, HoldsAMutexOrNothing) {
    const LumOptionalMutexLock nothing(nullptr);
    LumMutex mutex;
    auto lock = std::make_unique<LumOptionalMutexLock>(&mutex);
    Contender contender(mutex);
    EXPECT_TRUE(contender.IsStillWaitingAfter(milliseconds(10)));
    lock.reset();
    EXPECT_TRUE(contender.GetsIn());
}

TEST(LumMutexOptionalLock, GivesBackOnlyWhatItTook) {
    LumMutex mutex;
    for (uint32_t i = 0; i < LumMutex::kMaxDepth; ++i) {
        ASSERT_TRUE(mutex.Lock());
    }
    { const LumOptionalMutexLock refused(&mutex); }
    EXPECT_FALSE(mutex.Lock());
    for (uint32_t i = 0; i < LumMutex::kMaxDepth; ++i) {
        mutex.Unlock();
    }
    EXPECT_TRUE(Contender(mutex).GetsIn());
}
