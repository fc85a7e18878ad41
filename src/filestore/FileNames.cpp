#include "filestore/FileNames.h"

#include <array>
#include <charconv>

#include "host/text/LumAscii.h"
#include "host/time/LumTime.h"

namespace {

constexpr std::string_view kFileExtension = ".cbor";
constexpr std::string_view kDescriptionExtension = ".json";
/// The shape of the time in a name; 0 stands for a digit.
constexpr std::string_view kTimeShape = "00000000T000000Z";

bool IsSafe(char letter) {
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') || IsAsciiDigit(letter) ||
           letter == '.' || letter == '_' || letter == '-';
}

std::string FormatUtc(std::time_t seconds, const char* format) {
    const std::tm fields = GmTime(seconds);
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), format, &fields);
    return {text.data(), length};
}

bool HasTimeShape(std::string_view text) {
    if (text.size() != kTimeShape.size()) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (kTimeShape[i] == '0' ? !IsAsciiDigit(text[i]) : text[i] != kTimeShape[i]) {
            return false;
        }
    }
    return true;
}

/// 20261121T011025Z as 2026-11-21T01:10:25Z.
std::string Spelled(std::string_view time) {
    const auto part = [&](std::size_t start, std::size_t length) {
        return std::string(time.substr(start, length));
    };
    return part(0, 4) + "-" + part(4, 2) + "-" + part(6, 5) + ":" + part(11, 2) + ":" + part(13, 3);
}

}  // namespace

std::string SafeName(std::string_view text, std::size_t maxLength) {
    std::string name(text.substr(0, maxLength));
    for (char& letter : name) {
        letter = IsSafe(letter) ? letter : '_';
    }
    if (name.empty()) {
        return "file";
    }
    if (name.front() == '.' || name.front() == '-') {
        name.front() = '_';
    }
    return name;
}

std::string DerivedName(std::time_t seconds, uint64_t number, std::string_view label) {
    return FormatUtc(seconds, "%Y%m%dT%H%M%SZ") + "-" + std::to_string(number) + "-" +
           SafeName(label, kMaxLabelLength) + std::string(kFileExtension);
}

bool ParseDerivedName(std::string_view name, DerivedNameParts& parts) {
    if (!name.ends_with(kFileExtension)) {
        return false;
    }
    name.remove_suffix(kFileExtension.size());
    const std::string_view time = name.substr(0, kTimeShape.size());
    if (!HasTimeShape(time)) {
        return false;
    }
    const std::string_view rest = name.substr(kTimeShape.size());
    if (!rest.starts_with('-')) {
        return false;
    }
    uint64_t number = 0;
    const char* const end = rest.data() + rest.size();
    const auto [stop, failure] = std::from_chars(rest.data() + 1, end, number);
    if (failure != std::errc() || stop == end || *stop != '-' || stop + 1 == end) {
        return false;
    }
    parts.receivedAt = Spelled(time);
    parts.number = number;
    parts.label.assign(stop + 1, end);
    return true;
}

std::string DescriptionName(std::string_view fileName) {
    return std::string(fileName.substr(0, fileName.rfind('.'))) + std::string(kDescriptionExtension);
}

bool IsDescriptionName(std::string_view name) {
    return name.ends_with(kDescriptionExtension);
}

std::string UtcTimeText(std::time_t seconds) {
    return FormatUtc(seconds, "%Y-%m-%dT%H:%M:%SZ");
}
