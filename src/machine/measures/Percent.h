#pragma once

#include <cstdint>

/// 0 to 100; 0 of nothing.
[[nodiscard]] inline double PercentOf(uint64_t part, uint64_t whole) {
    constexpr double kHundred = 100.0;
    return whole == 0 ? 0.0 : kHundred * static_cast<double>(part) / static_cast<double>(whole);
}
