#pragma once

#include <cstdint>

#include "host/container/LumContainer.h"
#include "host/text/LumString.h"
#include "model/Model.h"

/// The two statements that answer a query. Constant texts of their inputs.
struct EventQueryText {
    LumString select;
    LumString count;
};

/// Builds them from what a caller asks for in "Values" (the keys are those of docs/actions.md). The count is
/// that of the whole table, whatever the select is limited to. With both dates the select is not valid SQL:
/// the end clause then stands without its WHERE, and callers rely on being told so by the status.
[[nodiscard]] EventQueryText BuildEventQuery(const Model_t& model, const LumContainer& values);

/// Reads events of one model back, by date, sorted, in pages. "Values": "ModelName" and the optional keys.
/// Answers 0 with "Result"; 13 for a missing argument or an unknown model; 1 where the database refuses the
/// select. May be called from any thread; enabled and disabled models answer alike.
uint32_t ActionHandler_EventLogManagerGetEvents(LumContainer* container);
