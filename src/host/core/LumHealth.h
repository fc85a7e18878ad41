#pragma once

#include <vector>

#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// What keeps this agent from doing its work, as its parts say it. Every routine may be called from any
/// thread.

/// Sets or replaces the reason of `source`, a short name such as "database": one sentence for people, ending
/// with a full stop. An empty sentence takes the reason back. Cheap where nothing changes, so that it may be
/// called after every operation.
LUM_API void LumHealthReport(const LumString& source, const LumString& sentence);

/// The reasons that stand, in the order in which their sources first gave one; none means healthy.
[[nodiscard]] LUM_API std::vector<LumString> LumHealthReasons();
