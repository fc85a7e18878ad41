#pragma once

#include <functional>

/// From now on the system refuses this thread, and those that it starts, one of its calls: the call of that
/// number (SYS_...) does nothing and fails with `reason`. It cannot be taken back. False where the system
/// cannot do that.
[[nodiscard]] bool RefuseCall(long call, int reason);

/// Runs `routine` in a thread of its own that is refused a call. False, with nothing run, where the system
/// cannot do that.
[[nodiscard]] bool RunRefused(long call, int reason, const std::function<void()>& routine);
