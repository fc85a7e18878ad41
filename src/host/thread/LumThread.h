#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "host/text/LumApi.h"

/// A thread that can be asked to stop. Derive from it and override ThreadMain, or hand Start a routine.
///
/// Start, Cancel and the destructor belong to the owner, one thread at a time; CheckCancelled and Pause are
/// for the thread itself. A derived class calls WaitForEnd in its destructor: by the time the base class is
/// destroyed, the ThreadMain that may still be running is gone.
class LUM_API LumThread {
public:
    using Routine = uint32_t (*)(void* argument);

    LumThread() = default;
    LumThread(const LumThread&) = delete;
    LumThread& operator=(const LumThread&) = delete;
    virtual ~LumThread();

    /// The thread's body when Start is given no routine. This one does nothing.
    virtual void ThreadMain() {}

    /// Runs `routine(argument)`, or ThreadMain where `routine` is null, on a new thread. False where the
    /// thread is still running or the system refuses one. A thread that has ended may be started again.
    [[nodiscard]] bool Start(Routine routine, void* argument);

    /// Asks the thread to stop and waits up to `milliseconds` for its end; true once it has ended or if it
    /// was never started. With `endPause` a Pause ends at once, else it runs to its end. The thread is never
    /// killed: one that has not ended in time goes on, and destroying the object waits for it.
    bool Cancel(uint32_t milliseconds, bool endPause);

    /// True once Cancel was called. With `clear` the request is forgotten.
    [[nodiscard]] bool CheckCancelled(bool clear);

    /// Sleeps; false where a Cancel that ends pauses cut it short.
    bool Pause(uint32_t milliseconds);

    /// Cancels and waits without limit until the thread has left this object and its code.
    void WaitForEnd();

private:
    std::thread thread_;

    // Guards the flags, as LumMutex has no condition to wait for.
    std::mutex mutex_;
    std::condition_variable changed_;
    bool running_ = false;
    bool cancelled_ = false;
    bool endPause_ = false;
};
