#pragma once

#include <cstdint>

#include "host/text/LumApi.h"

/// What was done on all databases since the process started.
struct DBFigures {
    uint64_t statements = 0;
    uint64_t failures = 0;       ///< of them
    uint64_t syncs = 0;          ///< of write-ahead logs, for callers that waited
    uint64_t syncedChanges = 0;  ///< changes that became durable by them
};

/// May be called from any thread.
[[nodiscard]] LUM_API DBFigures DBReadFigures();
