#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <thread>

#include "host/text/LumApi.h"
#include "host/thread/LumThreadSafety.h"

/// A mutex that the thread holding it may take again. Whoever has waited kStarvingAfter is handed the mutex
/// by the next release, so that no thread waits for long behind others that come back at once; until then a
/// running thread may take a free mutex first, which saves the switch (the two modes of Go's sync.Mutex). All
/// operations may be called from any thread.
class LUM_API LUM_CAPABILITY("mutex") LumMutex {
public:
    /// How often one thread may hold the mutex at once. More is taken for a recursion without end.
    static constexpr uint32_t kMaxDepth = 1000;
    static constexpr std::chrono::microseconds kStarvingAfter{600};

    LumMutex() = default;
    LumMutex(const LumMutex&) = delete;
    LumMutex& operator=(const LumMutex&) = delete;
    ~LumMutex() = default;

    /// Waits for the mutex without limit. False, and nothing taken, where this thread holds it kMaxDepth
    /// times.
    [[nodiscard]] bool Lock() LUM_TRY_ACQUIRE(true);
    /// Gives back what one Lock took. Does nothing on a thread that does not hold the mutex.
    void Unlock() LUM_RELEASE();

    [[nodiscard]] bool IsHeldByThisThread() const {
        return owner_.load(std::memory_order_relaxed) == std::this_thread::get_id();
    }

private:
    struct Waiter {
        std::condition_variable wake;
        bool told = false;                 // that the mutex was free
        bool starving = false;             // to be handed the mutex
        std::atomic<bool> granted{false};  // written under guard_
    };

    // The bits of state_. While kContended is set, state_ changes under guard_ alone.
    static constexpr uint32_t kHeld = 1;
    static constexpr uint32_t kContended = 2;  // somebody waits, or is about to

    /// How long one whose turn is next stays awake for it, as waking a thread can take longer than the turn
    /// is away.
    static constexpr std::chrono::microseconds kSpinFor{500};

    [[nodiscard]] bool IsHeld() const { return (state_.load(std::memory_order_relaxed) & kHeld) != 0; }
    void LockContended();
    void WaitForTurn(std::unique_lock<std::mutex>& guard);
    void Starve(Waiter& waiter, std::unique_lock<std::mutex>& guard);
    void PassOn();

    // The holder alone writes and reads depth_; others read owner_ only to learn that it is not them.
    std::atomic<std::thread::id> owner_{};
    uint32_t depth_ = 0;

    std::atomic<uint32_t> state_{0};
    // Guards the two below it. The annotation would say so, but clang knows the standard mutex for no lock.
    std::mutex guard_;
    uint32_t starving_ = 0;
    std::list<Waiter*> waiters_;
};

/// Holds a mutex for its own lifetime.
class LUM_API LUM_SCOPED_CAPABILITY LumMutexLock {
public:
    explicit LumMutexLock(LumMutex& mutex) LUM_ACQUIRE(mutex);
    LumMutexLock(const LumMutexLock&) = delete;
    LumMutexLock& operator=(const LumMutexLock&) = delete;
    ~LumMutexLock() LUM_RELEASE();

    /// False where the mutex could not be taken.
    [[nodiscard]] bool IsHeld() const noexcept { return held_; }

private:
    LumMutex& mutex_;
    bool held_;
};

/// Holds a mutex for its own lifetime, or nothing where the pointer is null: for structures whose lock is
/// optional.
class LUM_API LumOptionalMutexLock {
public:
    explicit LumOptionalMutexLock(LumMutex* mutex);
    LumOptionalMutexLock(const LumOptionalMutexLock&) = delete;
    LumOptionalMutexLock& operator=(const LumOptionalMutexLock&) = delete;
    ~LumOptionalMutexLock();

private:
    LumMutex* mutex_;
};
