#include "machine/packages/PackageLine.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace {

/// The shape of the time; 0 stands for a digit.
constexpr std::string_view kTimeShape = "0000-00-00 00:00:00";
/// Date, time, action, package, old version, version.
constexpr std::size_t kWords = 6;
constexpr std::array<std::string_view, 4> kActions = {"install", "upgrade", "remove", "purge"};

bool HasTimeShape(std::string_view text) {
    return text.size() >= kTimeShape.size() &&
           std::equal(kTimeShape.begin(), kTimeShape.end(), text.begin(), [](char shape, char letter) {
               return shape == '0' ? letter >= '0' && letter <= '9' : letter == shape;
           });
}

int NumberAt(std::string_view text, std::size_t start, std::size_t length) {
    int number = 0;
    for (const char digit : text.substr(start, length)) {
        number = number * 10 + (digit - '0');
    }
    return number;
}

/// Splits at single blanks; false unless there are exactly as many words as fit, none of them empty.
bool SplitWords(std::string_view line, std::array<std::string_view, kWords>& words) {
    for (std::size_t i = 0; i < kWords; ++i) {
        const std::size_t end = line.find(' ');
        if (end == 0 || line.empty() || (end == std::string_view::npos) != (i + 1 == kWords)) {
            return false;
        }
        words[i] = line.substr(0, end);
        line.remove_prefix(std::min(line.size(), end == std::string_view::npos ? end : end + 1));
    }
    return true;
}

}  // namespace

std::time_t TimeOfLine(std::string_view line) {
    if (!HasTimeShape(line)) {
        return -1;
    }
    std::tm fields = {};
    fields.tm_year = NumberAt(line, 0, 4) - 1900;
    fields.tm_mon = NumberAt(line, 5, 2) - 1;
    fields.tm_mday = NumberAt(line, 8, 2);
    fields.tm_hour = NumberAt(line, 11, 2);
    fields.tm_min = NumberAt(line, 14, 2);
    fields.tm_sec = NumberAt(line, 17, 2);
    fields.tm_isdst = -1;
    const bool isPossible = fields.tm_mon >= 0 && fields.tm_mon < 12 && fields.tm_mday >= 1 &&
                            fields.tm_mday <= 31 && fields.tm_hour < 24 && fields.tm_min < 60 &&
                            fields.tm_sec <= 60;
    return isPossible ? std::mktime(&fields) : -1;
}

bool ParsePackageLine(std::string_view line, PackageLine& parts) {
    std::array<std::string_view, kWords> words;
    if (!HasTimeShape(line) || !SplitWords(line, words) ||
        std::find(kActions.begin(), kActions.end(), words[2]) == kActions.end()) {
        return false;
    }
    const std::size_t colon = words[3].find(':');
    parts.action = words[2];
    parts.package = words[3].substr(0, colon);
    parts.architecture = colon == std::string_view::npos ? std::string_view() : words[3].substr(colon + 1);
    parts.oldVersion = words[4];
    parts.version = words[5];
    return true;
}
