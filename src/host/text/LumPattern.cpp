#include "host/text/LumPattern.h"

bool MatchPattern(const LumString& text, const LumString& pattern, bool ignoreCase) {
    const std::string_view t = text.View();
    const std::string_view p = pattern.View();
    const auto same = [&](char a, char b) {
        return a == b || (ignoreCase && LumFoldCase(a) == LumFoldCase(b));
    };
    std::size_t at = 0;
    std::size_t wanted = 0;
    // Only the last star is ever widened: what an earlier one could take as well, this one can.
    std::size_t star = std::string_view::npos;
    std::size_t starTook = 0;
    while (at < t.size()) {
        if (wanted < p.size() && p[wanted] == '*') {
            star = wanted++;
            starTook = at;
        } else if (wanted < p.size() && (p[wanted] == '?' || same(p[wanted], t[at]))) {
            ++wanted;
            ++at;
        } else if (star != std::string_view::npos) {
            wanted = star + 1;
            at = ++starTook;
        } else {
            return false;
        }
    }
    return p.find_first_not_of('*', wanted) == std::string_view::npos;
}
