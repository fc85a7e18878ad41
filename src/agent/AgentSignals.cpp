#include "agent/AgentSignals.h"

#include <atomic>
#include <ctime>

namespace {

std::atomic<bool> isStopTaken{false};

}  // namespace

AgentSignals::AgentSignals() {
    sigemptyset(&set_);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&set_, signal);
    }
    ::pthread_sigmask(SIG_BLOCK, &set_, nullptr);
    // A client that goes away, a reader of standard error, or a mistyped kill must not take the agent with
    // it.
    for (const int signal : {SIGPIPE, SIGUSR1, SIGUSR2}) {
        static_cast<void>(std::signal(signal, SIG_IGN));
    }
}

bool AgentSignals::IsStopAsked() {
    sigset_t pending = {};
    sigemptyset(&pending);
    sigpending(&pending);
    return isStopTaken || sigismember(&pending, SIGTERM) == 1 || sigismember(&pending, SIGINT) == 1;
}

int AgentSignals::Wait(std::chrono::milliseconds time) const {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    const timespec limit{seconds.count(), std::chrono::nanoseconds(time - seconds).count()};
    const int signal = ::sigtimedwait(&set_, nullptr, &limit);
    if (signal == SIGTERM || signal == SIGINT) {
        isStopTaken = true;
    }
    return signal < 0 ? 0 : signal;
}

const char* AgentSignals::NameOf(int signal) {
    return signal == SIGINT ? "SIGINT" : "SIGTERM";
}
