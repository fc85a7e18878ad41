#include "host/thread/LumMutex.h"

#include <algorithm>
#include <chrono>

bool LumMutex::Lock() {
    const std::thread::id self = std::this_thread::get_id();
    if (owner_.load(std::memory_order_relaxed) == self) {
        if (depth_ == kMaxDepth) {
            return false;
        }
        ++depth_;
        return true;
    }
    uint32_t free = 0;
    if (!state_.compare_exchange_strong(free, kHeld, std::memory_order_acquire, std::memory_order_relaxed)) {
        LockContended();
    }
    owner_.store(self, std::memory_order_relaxed);
    depth_ = 1;
    return true;
}

void LumMutex::LockContended() {
    std::unique_lock<std::mutex> guard(guard_);
    const bool wasHeld = (state_.fetch_or(kContended, std::memory_order_acquire) & kHeld) != 0;
    if (wasHeld || starving_ > 0) {
        WaitForTurn(guard);
    }
    state_.store(waiters_.empty() ? kHeld : kHeld | kContended, std::memory_order_relaxed);
}

void LumMutex::WaitForTurn(std::unique_lock<std::mutex>& guard) {
    Waiter waiter;
    const auto place = waiters_.insert(waiters_.end(), &waiter);
    const auto patience = std::chrono::steady_clock::now() + kStarvingAfter;
    while (!waiter.granted && (IsHeld() || starving_ > 0)) {
        if (waiter.wake.wait_until(guard, patience) == std::cv_status::timeout && !waiter.granted) {
            Starve(waiter, guard);
        }
    }
    waiters_.erase(place);
}

void LumMutex::Starve(Waiter& waiter, std::unique_lock<std::mutex>& guard) {
    waiter.starving = true;
    ++starving_;
    if (!IsHeld()) {
        PassOn();
    }
    guard.unlock();
    const auto spinEnd = std::chrono::steady_clock::now() + kSpinFor;
    while (!waiter.granted && std::chrono::steady_clock::now() < spinEnd) {
        std::this_thread::yield();
    }
    guard.lock();
    waiter.wake.wait(guard, [&waiter] { return waiter.granted.load(); });
    --starving_;
}

void LumMutex::PassOn() {
    for (Waiter* waiter : waiters_) {
        if (waiter->starving && !waiter->granted) {
            waiter->granted = true;
            state_.fetch_or(kHeld, std::memory_order_relaxed);
            waiter->wake.notify_one();
            return;
        }
    }
    // Each release would otherwise wake a thread in vain while another comes back at once. One that came too
    // late sleeps until it is handed the mutex.
    const auto untold =
        std::find_if(waiters_.begin(), waiters_.end(), [](const Waiter* w) { return !w->told; });
    if (untold != waiters_.end()) {
        (*untold)->told = true;
        (*untold)->wake.notify_one();
    }
}

void LumMutex::Unlock() {
    if (owner_.load(std::memory_order_relaxed) != std::this_thread::get_id() || --depth_ > 0) {
        return;
    }
    owner_.store(std::thread::id(), std::memory_order_relaxed);
    uint32_t held = kHeld;
    if (!state_.compare_exchange_strong(held, 0, std::memory_order_release, std::memory_order_relaxed)) {
        const std::lock_guard<std::mutex> guard(guard_);
        state_.fetch_and(~kHeld, std::memory_order_release);
        PassOn();
    }
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
