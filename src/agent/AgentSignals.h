#pragma once

#include <chrono>
#include <csignal>

/// The signals that the agent obeys. They are blocked in every thread, so that none is lost or kills the
/// process, and taken one by one where the agent is ready for them. SIGUSR1, SIGUSR2 and SIGPIPE mean nothing
/// to it. To be made on the main thread, before there is any other.
class AgentSignals {
public:
    AgentSignals();

    /// True once the agent was told to stop, also while that signal waits to be taken. From any thread.
    [[nodiscard]] static bool IsStopAsked();

    /// Waits for the next one, for so long at most: SIGTERM, SIGINT, SIGHUP, or 0 where none came.
    [[nodiscard]] int Wait(std::chrono::milliseconds time) const;

    /// The name of one that asks for a stop.
    [[nodiscard]] static const char* NameOf(int signal);

private:
    sigset_t set_ = {};
};
