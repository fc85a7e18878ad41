#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string_view>

#include "host/text/LumString.h"

/// How many characters of a field are kept.
inline constexpr std::size_t kMaxFieldCharacters = 256;

/// The text of a field as an event may hold it: whoever can write a log line can write anything into it.
/// Bytes that are not UTF-8, control characters and those that change the direction of text become U+FFFD; a
/// text of more than kMaxFieldCharacters characters is cut, and ends with U+2026 then.
[[nodiscard]] LumString FieldText(std::string_view raw);

/// `seconds` as an event may hold it: a moment before 1970, or more than a day after `now`, comes from a
/// clock that was wrong, and `now` stands in its place.
[[nodiscard]] int32_t FieldTime(std::time_t seconds, std::time_t now);
