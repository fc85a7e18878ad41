#pragma once

#include <cstdint>

#include "host/core/LumMetrics.h"

class LumContainer;
class LumString;

/// Says whether an alert may be created now, and remembers it if so. Fields at the container's own level:
/// "Description", "Status", "ObjectId" (0 where absent), "EventTimeGMT" (seconds). Answers 0 or
/// kActionWithinGap. May be called from any thread.
uint32_t ActionHandler_EventLogManagerCheckAlertMinimumGap(LumContainer* container);

/// Sends an alert to the file store, unless one like it passed within the minimum gap or too many have left
/// in this minute. "Description" at the container's own level; "Values" goes into the alert file with
/// everything in it. Always answers 0. May be called from any thread.
uint32_t ActionHandler_EventLogManagerCreateAlert(LumContainer* container);

/// Makes an alert of a line that was logged as an error. Called by ModuleDebug on the thread that logged it,
/// which may hold DatabaseMutex.
void RaiseAlertOnError(const LumString& text);

/// Alerts since the process started: those that were handed to the file store, and those that the minimum gap
/// held back. From any thread.
[[nodiscard]] LumCounter& AlertsSent();
[[nodiscard]] LumCounter& AlertsHeldBack();
