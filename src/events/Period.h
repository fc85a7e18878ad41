#pragma once

#include "host/time/LumTime.h"
#include "model/Vocabulary.h"

/// A span of time, `end` not included.
struct EventWindow {
    LumSeconds start;
    LumSeconds end;

    friend bool operator==(const EventWindow&, const EventWindow&) = default;
};

/// The start of the local calendar period of `policy` that `time` lies in; weeks begin on Sunday.
/// `time` itself for a policy that has no period. The local fields are cut with the daylight-saving flag of
/// `time` kept, so the start of a period before a change of daylight saving comes out an hour off: events
/// were always cut so, and windows have to meet.
[[nodiscard]] LumSeconds PeriodStart(Policy policy, LumSeconds time);
