#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include "host/text/LumString.h"

/// What waits in an outbox.
struct OutboxFigures {
    uint64_t files = 0;      ///< descriptions, of which each stands for one complete file
    uint64_t bytes = 0;      ///< of everything
    std::time_t oldest = 0;  ///< when the oldest file came; 0 where there is none
};

/// Looks through the directory. What cannot be looked at is left out.
[[nodiscard]] OutboxFigures ReadOutboxFigures(const std::string& directory);

/// Empty where a file can be made in the directory and written to; else one sentence that says why not.
/// Leaves nothing behind.
[[nodiscard]] LumString CheckOutbox(const std::string& directory);
