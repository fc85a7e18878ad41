#pragma once

#include <cstdint>

class LumContainer;

/// Stores one event of one model. "Values": "ModelName" and the container "EventParams", which holds the
/// values by parameter name and optionally "EventDeviceId" and "EventGroupId". Answers 0 also for a disabled
/// model, whose events are dropped; 13 for a missing argument or an unknown model; 1 for a value that is
/// missing without a default, or a row that could not be stored. May be called from any thread.
uint32_t ActionHandler_EventLogManagerCreateEvent(LumContainer* container);
