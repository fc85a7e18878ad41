#pragma once

#include <cstdint>
#include <ctime>

#include "model/Vocabulary.h"

/// A span of time, `end` not included; seconds since 1970 UTC.
struct EventWindow {
    int32_t start;
    int32_t end;

    friend bool operator==(const EventWindow&, const EventWindow&) = default;
};

/// The start of the local calendar period of `policy` that `time` (seconds since 1970 UTC) lies in; weeks
/// begin on Sunday. `time` itself for a policy that has no period. The local fields are cut with the
/// daylight-saving flag of `time` kept, so the start of a period before a change of daylight saving comes out
/// an hour off: events were always cut so, and windows have to meet.
[[nodiscard]] std::time_t PeriodStart(Policy policy, std::time_t time);
