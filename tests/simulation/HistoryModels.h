#pragma once

#include <vector>

#include "support/ModelText.h"

/// What may be dropped in a history. The third has the first one's name and another checksum; the last has
/// its source never.
[[nodiscard]] const std::vector<ModelText>& HistoryModels();
