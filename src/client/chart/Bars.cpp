#include "client/chart/Bars.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace {

constexpr std::size_t kEighths = 8;
constexpr std::array<std::string_view, kEighths + 1> kLying{"",       "\u258F", "\u258E", "\u258D", "\u258C",
                                                            "\u258B", "\u258A", "\u2589", "\u2588"};
constexpr std::array<std::string_view, kEighths + 1> kStanding{
    " ", "\u2581", "\u2582", "\u2583", "\u2584", "\u2585", "\u2586", "\u2587", "\u2588"};
constexpr std::array<std::string_view, kEighths + 1> kStandingAscii{" ", ".", ".", ":", ":",
                                                                    "-", "=", "+", "#"};

/// `count` of `largest` in steps, rounded, but at least one where the count is not 0.
std::size_t Steps(uint64_t count, uint64_t largest, std::size_t steps) {
    if (count == 0 || largest == 0) {
        return 0;
    }
    const double share = static_cast<double>(count) / static_cast<double>(largest);
    return static_cast<std::size_t>(std::max(std::lround(share * static_cast<double>(steps)), 1L));
}

}  // namespace

std::string HorizontalBar(uint64_t count, uint64_t largest, std::size_t columns, bool unicode) {
    if (!unicode) {
        std::string bar(Steps(count, largest, columns), '#');
        return bar;
    }
    const std::size_t eighths = Steps(count, largest, columns * kEighths);
    std::string bar;
    for (std::size_t i = 0; i < eighths / kEighths; ++i) {
        bar += kLying[kEighths];
    }
    return bar + std::string(kLying[eighths % kEighths]);
}

std::string Sparkline(const std::vector<uint64_t>& counts, uint64_t largest, bool unicode) {
    std::string line;
    for (const uint64_t count : counts) {
        line += (unicode ? kStanding : kStandingAscii)[Steps(count, largest, kEighths)];
    }
    return line;
}

std::vector<uint64_t> Condensed(const std::vector<uint64_t>& counts, std::size_t columns) {
    const std::size_t each = std::max<std::size_t>((counts.size() + columns - 1) / columns, 1);
    std::vector<uint64_t> sums((counts.size() + each - 1) / each);
    for (std::size_t i = 0; i < counts.size(); ++i) {
        sums[i / each] += counts[i];
    }
    return sums;
}
