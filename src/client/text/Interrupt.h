#pragma once

/// While one lives, Ctrl-C ends nothing: it is noted, so that work can stop at a good place and say how far
/// it came. A second Ctrl-C ends the process. At most one at a time.
class InterruptScope {
public:
    InterruptScope();
    InterruptScope(const InterruptScope&) = delete;
    InterruptScope& operator=(const InterruptScope&) = delete;
    ~InterruptScope();

    [[nodiscard]] static bool WasInterrupted();
};
