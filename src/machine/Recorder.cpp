#include "machine/Recorder.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string_view>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "machine/source/MachineLog.h"

namespace {

/// Between the turns of a backlog others come to the store, and to the processor, first.
constexpr uint32_t kBreatherMs = 2;
/// After a failure, most likely a lack of memory, which takes a moment to go.
constexpr uint32_t kFailureMs = 1000;

}  // namespace

Recorder::~Recorder() {
    static_cast<void>(End(0));
    WaitForEnd();
}

bool Recorder::Begin() {
    wake_ = FileDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    isStopping_ = false;
    hasNews_.assign(feeds_.size(), true);
    return wake_.IsOpen() && Start(nullptr, nullptr);
}

bool Recorder::End(uint32_t milliseconds) {
    isStopping_ = true;
    if (wake_.IsOpen()) {
        const uint64_t one = 1;
        // This fails only where the counter is full, and then the thread wakes as well.
        static_cast<void>(::write(wake_.Get(), &one, sizeof(one)));
    }
    return Cancel(milliseconds, true);
}

void Recorder::ThreadMain() {
    while (!IsStopping()) {
        try {
            if (TakeTurns()) {
                Pause(kBreatherMs);
            } else {
                WaitForNews();
            }
        } catch (const std::exception& exception) {
            MachineDebug.ErrorWithNL("%S: A turn failed, %s", std::string_view("Recorder::ThreadMain"),
                                     exception.what());
            Pause(kFailureMs);
        }
    }
}

bool Recorder::TakeTurns() {
    bool hasMore = false;
    for (std::size_t i = 0; i < feeds_.size() && !IsStopping(); ++i) {
        if (!hasNews_[i] && feeds_[i]->GetDue() > Feed::Clock::now()) {
            continue;
        }
        hasNews_[i] = feeds_[i]->Work([this] { return IsStopping(); });
        hasMore = hasMore || hasNews_[i];
    }
    return hasMore;
}

void Recorder::WaitForNews() {
    std::vector<pollfd> waits = {{wake_.Get(), POLLIN, 0}};
    Feed::Clock::time_point due = Feed::Clock::time_point::max();
    for (const std::unique_ptr<Feed>& feed : feeds_) {
        waits.push_back({feed->GetDescriptor(), POLLIN, 0});
        due = std::min(due, feed->GetDue());
    }
    constexpr std::chrono::milliseconds kLongest{86'400'000};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
        std::clamp<Feed::Clock::duration>(due - Feed::Clock::now(), Feed::Clock::duration::zero(), kLongest));
    if (::poll(waits.data(), waits.size(), static_cast<int>(left.count())) <= 0) {
        return;
    }
    for (std::size_t i = 0; i < feeds_.size(); ++i) {
        hasNews_[i] = waits[i + 1].revents != 0;
    }
}
