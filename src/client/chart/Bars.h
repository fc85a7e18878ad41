#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Pictures of counts in lines of text: with the block characters of Unicode, which tell eighths of a
/// character apart, or with plain ASCII.

/// A bar as long as `count` of `largest` is of `columns`; at least a trace where the count is not 0.
[[nodiscard]] std::string HorizontalBar(uint64_t count, uint64_t largest, std::size_t columns, bool unicode);

/// One character a count, the higher the larger; a blank for 0.
[[nodiscard]] std::string Sparkline(const std::vector<uint64_t>& counts, uint64_t largest, bool unicode);

/// At most `columns` counts: neighbours are added up.
[[nodiscard]] std::vector<uint64_t> Condensed(const std::vector<uint64_t>& counts, std::size_t columns);
