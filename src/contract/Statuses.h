#pragma once

#include <cstdint>

/// What an action answers with.

inline constexpr uint32_t kActionDone = 0;      ///< the answer, if any, is in the container
inline constexpr uint32_t kActionFailed = 1;    ///< failed while doing the work
inline constexpr uint32_t kActionRefused = 13;  ///< an argument, or what it names, is missing
/// The alert was held back: the minimum gap since the last one like it has not passed.
inline constexpr uint32_t kActionWithinGap = 45001;
