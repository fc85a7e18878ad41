#pragma once

#include <functional>

/// Runs `routine` in a thread of its own for which the system refuses one of its calls: the call of that
/// number (SYS_...) does nothing and fails with `reason`, for the threads that the routine starts as well.
/// False, with nothing run, where the system cannot do that.
[[nodiscard]] bool RunRefused(long call, int reason, const std::function<void()>& routine);
