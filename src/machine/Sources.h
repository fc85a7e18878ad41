#pragma once

#include <memory>
#include <vector>

#include "machine/Settings.h"
#include "machine/source/Source.h"

/// Makes every source that the settings do not switch off. A further source is one line here and one file.
[[nodiscard]] std::vector<std::unique_ptr<Source>> MakeSources(const Settings& settings);
