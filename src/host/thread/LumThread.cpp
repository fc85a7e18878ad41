#include "host/thread/LumThread.h"

#include <chrono>
#include <exception>

LumThread::~LumThread() {
    WaitForEnd();
}

bool LumThread::Start(Routine routine, void* argument) {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (running_) {
            return false;
        }
        running_ = true;
        cancelled_ = false;
        endPause_ = false;
    }
    if (thread_.joinable()) {
        thread_.join();
    }
    try {
        thread_ = std::thread([this, routine, argument] {
            if (routine != nullptr) {
                routine(argument);
            } else {
                ThreadMain();
            }
            const std::lock_guard<std::mutex> guard(mutex_);
            running_ = false;
            changed_.notify_all();
        });
    } catch (const std::exception&) {  // no thread, or no memory for what it has to be told
        const std::lock_guard<std::mutex> guard(mutex_);
        running_ = false;
        return false;
    }
    return true;
}

bool LumThread::Cancel(uint32_t milliseconds, bool endPause) {
    {
        std::unique_lock<std::mutex> guard(mutex_);
        cancelled_ = true;
        endPause_ = endPause_ || endPause;
        changed_.notify_all();
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        while (running_) {
            if (changed_.wait_until(guard, until) == std::cv_status::timeout && running_) {
                return false;
            }
        }
    }
    if (thread_.joinable()) {
        thread_.join();
    }
    return true;
}

bool LumThread::CheckCancelled(bool clear) {
    const std::lock_guard<std::mutex> guard(mutex_);
    const bool cancelled = cancelled_;
    if (clear) {
        cancelled_ = false;
        endPause_ = false;
    }
    return cancelled;
}

bool LumThread::Pause(uint32_t milliseconds) {
    std::unique_lock<std::mutex> guard(mutex_);
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (!endPause_) {
        if (changed_.wait_until(guard, until) == std::cv_status::timeout) {
            return !endPause_;
        }
    }
    return false;
}

void LumThread::WaitForEnd() {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        cancelled_ = true;
        endPause_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable()) {
        thread_.join();
    }
}
