#include "client/text/Quantity.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "client/text/TimeText.h"

namespace {

/// Beyond it a double does not tell neighbouring whole numbers apart.
constexpr double kMostExact = 9007199254740992.0;

bool Holds(std::string_view name, std::string_view part) {
    return name.find(part) != std::string_view::npos;
}

bool IsMoment(std::string_view name) {
    return name.starts_with("oldest") || name.starts_with("newest") || name.starts_with("last") ||
           name.ends_with("At") || name.ends_with("Time");
}

}  // namespace

std::string WithThousands(uint64_t number) {
    std::string text = std::to_string(number);
    for (std::size_t at = text.size(); at > 3;) {
        at -= 3;
        text.insert(at, ",");
    }
    return text;
}

std::string CountText(uint64_t count, std::string_view one) {
    return WithThousands(count).append(" ").append(one).append(count == 1 ? "" : "s");
}

std::string BytesText(uint64_t bytes) {
    static constexpr std::array<const char*, 5> kUnits{"B", "KiB", "MiB", "GiB", "TiB"};
    constexpr double kStep = 1024;
    auto amount = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (amount >= kStep && unit + 1 < kUnits.size()) {
        amount /= kStep;
        ++unit;
    }
    std::array<char, 32> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(),
                                    unit == 0 || amount >= 10 ? "%.0f %s" : "%.1f %s", amount,
                                    kUnits.at(unit)));  // always fits
    return text.data();
}

std::string DurationText(int64_t seconds) {
    constexpr int64_t kMinute = 60;
    constexpr int64_t kHour = 60 * kMinute;
    constexpr int64_t kDay = 24 * kHour;
    const auto count = [](int64_t number, const char* unit) { return std::to_string(number) + " " + unit; };
    if (seconds < kMinute) {
        return count(seconds, "s");
    }
    if (seconds < kHour) {
        return count(seconds / kMinute, "min");
    }
    const bool isLong = seconds >= kDay;
    const int64_t rest = isLong ? seconds % kDay / kHour : seconds % kHour / kMinute;
    return (isLong ? count(seconds / kDay, "d") : count(seconds / kHour, "h")) +
           (rest == 0 ? std::string() : " " + count(rest, isLong ? "h" : "min"));
}

std::string QuantityText(std::string_view name, const nlohmann::ordered_json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_null()) {
        return {};
    }
    // A number over 32 bits comes as one with a fraction of nothing.
    const bool whole = value.is_number_integer() ||
                       (value.is_number_float() && std::floor(value.get<double>()) == value.get<double>());
    if (whole && value.get<double>() >= 0 && value.get<double>() < kMostExact) {
        const auto number = value.get<int64_t>();
        if (Holds(name, "ytes") || name == "memory" || name == "database" || name == "log") {
            return BytesText(static_cast<uint64_t>(number));
        }
        if (Holds(name, "uptime") || name.ends_with("Age") || name.ends_with("age") ||
            name.ends_with("Seconds")) {
            return DurationText(number);
        }
        if (IsMoment(name)) {
            return number == 0 ? "never" : FormatLocalTime(number);
        }
        return std::to_string(number);
    }
    return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}
