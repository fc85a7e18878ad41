#pragma once

#include <cstdint>

class LumContainer;

/// The actions that change the set of models or their state. All may be called from any thread.

/// Switch one model on or off: first its row in the database, then, only if that succeeded, its flag in
/// memory. "Values": "ModelName". Answer 0, also where there is nothing to change; 1 where the database
/// refuses; 13 for a missing name or an unknown model.
uint32_t ActionHandler_EventLogManagerEnableModel(LumContainer* container);
uint32_t ActionHandler_EventLogManagerDisableModel(LumContainer* container);

/// Deletes one model with its table, its events and its definition; not an action, but what the next one does
/// for each name. "Values": "ModelName". Answers 0; 1 where the name is missing or the deletion failed; 13
/// without "Values".
uint32_t ActionHandler_EventLogManagerDeleteModel(LumContainer* container);

/// Deletes several models. "Values": "ModelName" at positions 0, 1, 2, ... up to the first empty one. Answers
/// 0 whatever becomes of them; 13 without "Values".
uint32_t ActionHandler_EventLogManagerDeleteModels(LumContainer* container);

/// Takes in dropped definition files and checks the references between the models again. Always answers 0;
/// where the registered models could not be loaded so far, and cannot now, an error line says so in place of
/// the success.
uint32_t ActionHandler_EventLogManagerReloadModels(LumContainer* container);
