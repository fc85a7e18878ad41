#pragma once

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <chrono>
#include <cstddef>
#include <new>
#include <thread>
#include <vector>

/// Posts `task` to `executor`; where there is no memory for that, again until there is. Nothing may get lost
/// there: somebody waits for it. `task` is cheap to copy.
template <class Executor, class Task>
void PostPatiently(Executor& executor, const Task& task) {
    constexpr std::chrono::milliseconds pause(10);
    for (;;) {
        try {
            boost::asio::post(executor, Task(task));
            return;
        } catch (const std::bad_alloc&) {
            std::this_thread::sleep_for(pause);
        }
    }
}

/// Threads that run calls, with a look at whether they get on. All operations may be called from any thread,
/// but for Join.
class WorkerPool {
public:
    using Clock = std::chrono::steady_clock;

    /// Throws where the system does not let it have as many threads.
    explicit WorkerPool(std::size_t threads) {
        try {
            while (threads_.size() < threads) {
                threads_.emplace_back([this] { io_.run(); });
            }
        } catch (...) {
            Join();  // Asio's own pool would wait here for those that have begun, and they for their work
            throw;
        }
    }
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;
    ~WorkerPool() { Join(); }

    /// Runs `task`, which must not throw, when a thread is free.
    template <class Task>
    void Run(const Task& task) {
        if (waiting_ == 0) {
            NoteProgress();  // the wait begins now
        }
        ++waiting_;
        PostPatiently(io_, [this, task]() mutable {
            ++running_;
            --waiting_;
            task();
            NoteProgress();
            --running_;
        });
    }

    /// Waits until all is done.
    void Join() {
        work_.reset();
        for (std::thread& thread : threads_) {
            thread.join();
        }
        threads_.clear();
    }

    [[nodiscard]] std::size_t CountRunning() const { return running_; }
    [[nodiscard]] std::size_t CountWaiting() const { return waiting_; }

    /// For how long calls have waited while none ended; 0 where none waits.
    [[nodiscard]] Clock::duration GetStuckTime() const {
        return waiting_ == 0 ? Clock::duration::zero()
                             : Clock::now() - Clock::time_point(Clock::duration(lastProgress_));
    }

private:
    void NoteProgress() { lastProgress_ = Clock::now().time_since_epoch().count(); }

    std::atomic<std::size_t> running_{0};
    std::atomic<std::size_t> waiting_{0};
    std::atomic<Clock::rep> lastProgress_{Clock::now().time_since_epoch().count()};
    boost::asio::io_context io_;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{io_.get_executor()};
    std::vector<std::thread> threads_;
};
