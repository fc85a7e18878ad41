#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

/// "1,234,567".
[[nodiscard]] std::string WithThousands(uint64_t number);
/// A number of things: "1 event", "1,234 events", where `one` is "event".
[[nodiscard]] std::string CountText(uint64_t count, std::string_view one);
/// "512 B", "1.5 KiB", "23 MiB".
[[nodiscard]] std::string BytesText(uint64_t bytes);
/// "45 s", "12 min", "3 h 20 min", "2 d 4 h".
[[nodiscard]] std::string DurationText(int64_t seconds);

/// A value for people, as its name says what it measures: bytes, a span of seconds (age, uptime), or a moment
/// (oldest, newest, last...), of which 0 is "never". Anything else as it is.
[[nodiscard]] std::string QuantityText(std::string_view name, const nlohmann::ordered_json& value);
