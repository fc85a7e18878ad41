#include "fleet/service/StopSignal.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

namespace {

std::atomic<bool> stopAsked{false};
static_assert(std::atomic<bool>::is_always_lock_free, "it is set from a signal handler");

void NoteSignal(int /*signal*/) {
    stopAsked.store(true);
}

}  // namespace

StopSignal::StopSignal() {
    struct sigaction action {};
    action.sa_handler = NoteSignal;
    // Neither can fail for signals that may be caught.
    static_cast<void>(sigaction(SIGTERM, &action, nullptr));
    static_cast<void>(sigaction(SIGINT, &action, nullptr));
    action.sa_handler = SIG_IGN;
    static_cast<void>(sigaction(SIGPIPE, &action, nullptr));
}

bool StopSignal::IsSet() {
    return stopAsked.load();
}

bool StopSignal::Wait(int64_t ms) {
    constexpr int64_t stepMs = 50;
    for (int64_t left = ms; left > 0 && !IsSet(); left -= stepMs) {
        std::this_thread::sleep_for(std::chrono::milliseconds(std::min(left, stepMs)));
    }
    return IsSet();
}
