#include "host/lum/LumMutex.h"

#include <chrono>

namespace {

/// Tells the calling thread from every other one that is alive.
const void* ThisThread() {
    static thread_local const char marker = 0;
    return &marker;
}

}  // namespace

bool LumMutex::Lock() {
    const void* const self = ThisThread();
    if (owner_.load(std::memory_order_relaxed) == self) {
        if (depth_ == kMaxDepth) {
            return false;
        }
        ++depth_;
        return true;
    }
    {
        std::unique_lock<std::mutex> guard(guard_);
        if (held_ || starving_ > 0) {
            WaitForTurn(guard);
        }
        held_ = true;
    }
    owner_.store(self, std::memory_order_relaxed);
    depth_ = 1;
    return true;
}

void LumMutex::WaitForTurn(std::unique_lock<std::mutex>& guard) {
    Waiter waiter;
    const auto place = waiters_.insert(waiters_.end(), &waiter);
    const auto patience = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStarvingAfterMs);
    while (!waiter.granted) {
        if (!held_ && starving_ == 0) {
            break;
        }
        if (waiter.starving) {
            waiter.wake.wait(guard);
        } else if (waiter.wake.wait_until(guard, patience) == std::cv_status::timeout && !waiter.granted) {
            waiter.starving = true;
            ++starving_;
            if (!held_) {
                PassOn();
            }
        }
    }
    waiters_.erase(place);
    if (waiter.starving) {
        --starving_;
    }
}

void LumMutex::PassOn() {
    for (Waiter* waiter : waiters_) {
        if (starving_ == 0 || (waiter->starving && !waiter->granted)) {
            // A starving waiter is handed the mutex; any other is only told to try.
            if (waiter->starving) {
                waiter->granted = true;
                held_ = true;
            }
            waiter->wake.notify_one();
            return;
        }
    }
}

void LumMutex::Unlock() {
    if (owner_.load(std::memory_order_relaxed) != ThisThread() || --depth_ > 0) {
        return;
    }
    owner_.store(nullptr, std::memory_order_relaxed);
    const std::lock_guard<std::mutex> guard(guard_);
    held_ = false;
    PassOn();
}

LumMutexLock::LumMutexLock(LumMutex& mutex) : mutex_(mutex), held_(mutex.Lock()) {}

LumMutexLock::~LumMutexLock() {
    if (held_) {
        mutex_.Unlock();
    }
}

LumOptionalMutexLock::LumOptionalMutexLock(LumMutex* mutex) LUM_NO_THREAD_SAFETY_ANALYSIS
    : mutex_(mutex != nullptr && mutex->Lock() ? mutex : nullptr) {}

LumOptionalMutexLock::~LumOptionalMutexLock() LUM_NO_THREAD_SAFETY_ANALYSIS {
    if (mutex_ != nullptr) {
        mutex_->Unlock();
    }
}
