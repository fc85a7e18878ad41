#pragma once

#include <cstdint>
#include <ctime>

#include "host/text/LumApi.h"

/// A moment as events, tasks and the database hold it: seconds since 1970 UTC in 32 bits. What the clock or a
/// column gives is cut to them where it comes in.
using LumSeconds = int32_t;

/// The current moment.
[[nodiscard]] inline LumSeconds LumNow() {
    return static_cast<LumSeconds>(std::time(nullptr));
}

/// The UTC calendar fields of `seconds` since 1970; all 0 where the year does not fit.
[[nodiscard]] LUM_API std::tm GmTime(std::time_t seconds);

/// The local calendar fields of `seconds` since 1970, daylight saving included; all 0 where the year does not
/// fit.
[[nodiscard]] LUM_API std::tm LocalTime(std::time_t seconds);

/// The UTC calendar fields of `seconds`, taken as local standard time and turned back into seconds since
/// 1970.
[[nodiscard]] LUM_API std::time_t LumUtcFieldsAsLocal(std::time_t seconds);

/// The local zone's offset from UTC at `seconds` since 1970, in seconds, positive east of Greenwich: the
/// local calendar fields turned back into seconds, plus 3600 while daylight saving is on, less
/// LumUtcFieldsAsLocal. All in signed 32-bit arithmetic. A zone whose summer time is not one hour ahead comes
/// out as if it were. Each thread remembers its last answer, so a busy one pays for one conversion a
/// second.
[[nodiscard]] LUM_API int32_t LumGmtOffset(std::time_t seconds);
