#pragma once

#include <cstdint>

class LumContainer;

/// Lists the models in memory: "Result" with their names, classes, notes and enabled flags in ascending order
/// of the names. Answers 0; 13 for a missing container. May be called from any thread; a model that is
/// removed meanwhile may make the listing skip one.
uint32_t ActionHandler_EventLogManagerGetModelNames(LumContainer* container);

/// Describes one model. "Values": "ModelName". Answers 0 with "Result"; 13 for a missing name or an unknown
/// model. May be called from any thread.
uint32_t ActionHandler_EventLogManagerGetModel(LumContainer* container);
