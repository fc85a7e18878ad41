#include "client/text/TimeText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <optional>

namespace {

constexpr int kSecondsPerMinute = 60;
constexpr int kSecondsPerHour = 3600;
constexpr int kTmYearBase = 1900;

/// Takes a text apart from the left. Every operation leaves the text alone where it does not fit.
class Reader {
public:
    explicit Reader(std::string_view text) : text_(text) {}

    [[nodiscard]] bool AtEnd() const { return text_.empty(); }

    bool Skip(char expected) {
        if (text_.empty() || text_.front() != expected) {
            return false;
        }
        text_.remove_prefix(1);
        return true;
    }

    /// Exactly `digits` decimal digits.
    bool Number(std::size_t digits, int& value) {
        if (text_.size() < digits) {
            return false;
        }
        const char* const end = text_.data() + digits;
        int number = 0;
        for (const char* at = text_.data(); at != end; ++at) {
            if (*at < '0' || *at > '9') {
                return false;
            }
            number = number * 10 + (*at - '0');
        }
        text_.remove_prefix(digits);
        value = number;
        return true;
    }

    /// One digit or more, whose value does not matter.
    bool SkipDigits() {
        const std::size_t length = std::min(text_.find_first_not_of("0123456789"), text_.size());
        text_.remove_prefix(length);
        return length > 0;
    }

private:
    std::string_view text_;
};

bool ReadDate(Reader& reader, std::tm& fields) {
    int year = 0;
    int month = 0;
    if (!reader.Number(4, year) || !reader.Skip('-') || !reader.Number(2, month) || !reader.Skip('-') ||
        !reader.Number(2, fields.tm_mday)) {
        return false;
    }
    fields.tm_year = year - kTmYearBase;
    fields.tm_mon = month - 1;
    // The calendar turns the 30th of February into the 2nd of March, which nobody means.
    std::tm day = fields;
    static_cast<void>(timegm(&day));
    return day.tm_mon == fields.tm_mon && day.tm_mday == fields.tm_mday;
}

bool ReadTimeOfDay(Reader& reader, std::tm& fields) {
    if (!reader.Number(2, fields.tm_hour) || !reader.Skip(':') || !reader.Number(2, fields.tm_min)) {
        return false;
    }
    if (reader.Skip(':')) {
        if (!reader.Number(2, fields.tm_sec)) {
            return false;
        }
        if (reader.Skip('.') && !reader.SkipDigits()) {
            return false;
        }
    }
    return fields.tm_hour < 24 && fields.tm_min < 60 && fields.tm_sec < 60;
}

/// The offset from UTC in seconds, nothing where the text names no zone; false where it names something that
/// is not a zone.
bool ReadZone(Reader& reader, std::optional<int>& offset) {
    if (reader.AtEnd()) {
        return true;
    }
    if (reader.Skip('Z')) {
        offset = 0;
        return reader.AtEnd();
    }
    const bool west = reader.Skip('-');
    int hours = 0;
    int minutes = 0;
    if ((!west && !reader.Skip('+')) || !reader.Number(2, hours)) {
        return false;
    }
    if (!reader.AtEnd()) {
        static_cast<void>(reader.Skip(':'));  // written or not, it means the same
        if (!reader.Number(2, minutes)) {
            return false;
        }
    }
    const int seconds = hours * kSecondsPerHour + minutes * kSecondsPerMinute;
    offset = west ? -seconds : seconds;
    return reader.AtEnd() && hours < 24 && minutes < 60;
}

/// 0 for a letter that is not a unit.
int64_t SecondsOfUnit(char letter) {
    switch (letter) {
        case 's':
            return 1;
        case 'm':
            return kSecondsPerMinute;
        case 'h':
            return kSecondsPerHour;
        case 'd':
            return int64_t{24} * kSecondsPerHour;
        case 'w':
            return int64_t{7} * 24 * kSecondsPerHour;
        default:
            return 0;
    }
}

bool ParseIso(std::string_view text, std::time_t& seconds) {
    Reader reader(text);
    std::tm fields{};
    std::optional<int> offset;
    if (!ReadDate(reader, fields)) {
        return false;
    }
    if (!reader.AtEnd() && ((!reader.Skip('T') && !reader.Skip(' ')) || !ReadTimeOfDay(reader, fields) ||
                            !ReadZone(reader, offset))) {
        return false;
    }
    if (offset) {
        seconds = timegm(&fields) - *offset;
        return true;
    }
    fields.tm_isdst = -1;
    seconds = std::mktime(&fields);
    return true;
}

}  // namespace

bool ParseTime(std::string_view text, int32_t& seconds) {
    int64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, value);
    if (failure != std::errc() || stop != end) {
        std::time_t time = 0;
        if (!ParseIso(text, time)) {
            return false;
        }
        value = time;
    }
    if (value < std::numeric_limits<int32_t>::min() || value > std::numeric_limits<int32_t>::max()) {
        return false;
    }
    seconds = static_cast<int32_t>(value);
    return true;
}

int64_t StartOfLocalDay(int64_t seconds, int daysBefore) {
    const std::time_t time = seconds;
    std::tm fields{};
    if (localtime_r(&time, &fields) == nullptr) {
        return seconds;
    }
    fields.tm_mday -= daysBefore;
    fields.tm_hour = fields.tm_min = fields.tm_sec = 0;
    fields.tm_isdst = -1;
    return std::mktime(&fields);
}

int64_t StartOfLocalHour(int64_t seconds) {
    const std::time_t time = seconds;
    std::tm fields{};
    if (localtime_r(&time, &fields) == nullptr) {
        return seconds;
    }
    return seconds - int64_t{fields.tm_min} * kSecondsPerMinute - fields.tm_sec;
}

bool ParseMoment(std::string_view text, int64_t now, int32_t& seconds) {
    if (text == "now" || text == "today" || text == "yesterday") {
        const int64_t moment = text == "now" ? now : StartOfLocalDay(now, text == "today" ? 0 : 1);
        seconds = static_cast<int32_t>(moment);
        return true;
    }
    const int64_t unit = text.empty() ? 0 : SecondsOfUnit(text.back());
    if (unit == 0) {
        return ParseTime(text, seconds);
    }
    int64_t count = 0;
    const char* const end = text.data() + text.size() - 1;
    const auto [stop, failure] = std::from_chars(text.data(), end, count);
    if (failure != std::errc() || stop != end || count < 0 || count > now / unit) {
        return false;
    }
    seconds = static_cast<int32_t>(now - count * unit);
    return true;
}

std::string FormatLocalTime(int64_t seconds) {
    const std::time_t time = seconds;
    std::tm fields{};
    if (localtime_r(&time, &fields) == nullptr) {
        return std::to_string(seconds);
    }
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &fields);
    const long offset = std::labs(fields.tm_gmtoff);
    std::array<char, 40> zone{};
    static_cast<void>(std::snprintf(zone.data(), zone.size(), "%c%02ld:%02ld",  // always fits
                                    fields.tm_gmtoff < 0 ? '-' : '+', offset / kSecondsPerHour,
                                    offset % kSecondsPerHour / kSecondsPerMinute));
    return std::string(text.data(), length) + zone.data();
}
