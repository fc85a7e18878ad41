#include "machine/measures/ProcText.h"

#include <charconv>
#include <cstddef>

namespace {

/// The number at the beginning of `text`, blanks left out, and what follows it.
template <class Number>
Number TakeNumber(std::string_view& text) {
    const std::size_t begin = text.find_first_not_of(' ');
    text.remove_prefix(begin == std::string_view::npos ? text.size() : begin);
    Number number = 0;
    const auto [stop, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
    return failure == std::errc() ? number : 0;
}

std::string_view After(std::string_view text, std::string_view key) {
    const std::size_t at = text.find(key);
    return at == std::string_view::npos ? std::string_view() : text.substr(at + key.size());
}

}  // namespace

LoadAverages ParseLoadAverages(std::string_view text) {
    LoadAverages averages;
    averages.minutes1 = TakeNumber<double>(text);
    averages.minutes5 = TakeNumber<double>(text);
    averages.minutes15 = TakeNumber<double>(text);
    return averages;
}

uint64_t ParseMemoryKiB(std::string_view text, std::string_view key) {
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        if (line.starts_with(key) && line.substr(key.size()).starts_with(':')) {
            line.remove_prefix(key.size() + 1);
            return TakeNumber<uint64_t>(line);
        }
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    }
    return 0;
}

double ParsePressure(std::string_view text) {
    std::string_view rest = After(After(text, "some "), "avg300=");
    return TakeNumber<double>(rest);
}
