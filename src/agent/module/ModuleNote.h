#pragma once

#include <cstdint>

#include "host/text/LumString.h"

/// Reads the version of the module interface that the module at `path` was built for, without running any of
/// its code. False, and `version` untouched, for a file that does not say: one that was built without the
/// header of the interface, or is not a library at all.
[[nodiscard]] bool ReadModuleInterface(const LumString& path, uint32_t& version);
