#pragma once

#include <cstdint>

/// What the system says of this process. 0 where it does not say.
struct ProcessFigures {
    uint64_t residentBytes = 0;
    uint32_t threads = 0;
    uint32_t openFiles = 0;
    double cpuSeconds = 0;
};

[[nodiscard]] ProcessFigures ReadProcessFigures();
