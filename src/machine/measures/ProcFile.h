#pragma once

#include <string>

#include "host/text/LumString.h"

/// Reads a file of /proc whole: its size is not known before. False, with path and reason in `error`, where
/// it is not there, cannot be read, or is over 4 MiB.
[[nodiscard]] bool ReadProcFile(const char* path, std::string& content, LumString& error);
