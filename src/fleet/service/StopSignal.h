#pragma once

#include <cstdint>

/// Says whether the process was asked to end (SIGTERM, SIGINT). One object a process.
class StopSignal {
public:
    /// From now on the two signals are noted instead of ending the process, and a write to a connection that
    /// the other side has closed is an error instead of a signal.
    StopSignal();

    [[nodiscard]] static bool IsSet();
    /// Waits for `ms` milliseconds or for the signal, whichever comes first; says whether it came.
    static bool Wait(int64_t ms);
};
