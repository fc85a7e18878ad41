#pragma once

#include <cstdint>

/// Milliseconds of a clock that never goes back and never jumps, whatever becomes of the system's time.
[[nodiscard]] int64_t SteadyMs();
