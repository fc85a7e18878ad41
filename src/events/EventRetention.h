#pragma once

#include <cstdint>
#include <memory>

#include "model/Model.h"

class LumContainer;

/// The moment before which events go: `timestamp` itself, or, for a scheduled deletion, the start of the
/// period of `policy` that it lies in.
[[nodiscard]] LumSeconds DeletionCutOff(Policy policy, LumSeconds timestamp, bool scheduled);

/// Deletes the events of `model` that are older than the cut-off; an event exactly at it stays. Knows no
/// exception for a model whose events are never to be deleted: nobody schedules that. False for null, and
/// where the database could not do it. Runs on the processor thread.
bool DeleteEvents(const std::shared_ptr<Model_t>& model, LumSeconds previousTimestamp, LumSeconds timestamp,
                  bool scheduled);

/// Queues the deletion of all events of one model before a moment. "Values": "ModelName", and "EndDate", the
/// current time where it is absent. Answers 0 once it is queued, 13 for a missing name or an unknown model.
/// May be called from any thread.
uint32_t ActionHandler_EventLogManagerDeleteEvents(LumContainer* container);
