#pragma once

#include <string>
#include <vector>

#include "host/database/DBReader.h"

/// Gives each registered model a view v_<Model> of its events: EventId, EventDate, EventDeviceId,
/// EventGroupId and the parameters by name. The event's date, and parameters that are timestamps, are local
/// times ("2026-11-21T08:30:00"). The names of the views go into `names`. False, with a sentence, where the
/// database is not the module's.
[[nodiscard]] bool DefineEventViews(DBReader& reader, std::vector<std::string>& names, std::string& error);
