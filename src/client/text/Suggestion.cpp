#include "client/text/Suggestion.h"

#include <algorithm>
#include <cstddef>

#include "host/text/LumPattern.h"

namespace {

/// Optimal string alignment: the least number of letters left out, put in, replaced or swapped with their
/// neighbour that makes one of the other.
std::size_t Distance(std::string_view a, std::string_view b) {
    std::vector<std::vector<std::size_t>> rows(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                rows[i][j] = i + j;
                continue;
            }
            const bool same = LumFoldCase(a[i - 1]) == LumFoldCase(b[j - 1]);
            rows[i][j] =
                std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && LumFoldCase(a[i - 1]) == LumFoldCase(b[j - 2]) &&
                LumFoldCase(a[i - 2]) == LumFoldCase(b[j - 1])) {
                rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
            }
        }
    }
    return rows[a.size()][b.size()];
}

}  // namespace

std::string NearestName(std::string_view given, const std::vector<std::string>& known) {
    constexpr std::size_t kLongestCompared = 64;
    if (given.size() > kLongestCompared) {
        return {};
    }
    std::size_t best =
        std::min<std::size_t>(std::max<std::size_t>(given.size() / 3, 2), given.size() - !given.empty());
    std::string nearest;
    for (const std::string& name : known) {
        const std::size_t distance = name.size() > kLongestCompared ? best + 1 : Distance(given, name);
        if (distance < best || (distance == best && nearest.empty())) {
            best = distance;
            nearest = name;
        }
    }
    return nearest;
}

std::string DidYouMean(std::string_view given, const std::vector<std::string>& known) {
    const std::string nearest = NearestName(given, known);
    return nearest.empty() ? "" : "; did you mean '" + nearest + "'?";
}
