#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Reads a point of time: whole seconds since 1970 UTC, or ISO 8601 as a date ("2026-11-21"), or a date and a
/// time ("2026-11-21T08:30", seconds and a fraction optional, a blank in place of the T allowed) with "Z", an
/// offset ("+01:00", "+0100", "+01") or no zone. Without a zone it is local time; a local time that the
/// change to summer time leaves out counts as if the clock had not been changed; of one that comes twice it
/// is whichever the system picks. A fraction of a second is cut off. False, and `seconds` untouched, for any
/// other text and for what lies outside of the 32-bit range that events are kept in.
[[nodiscard]] bool ParseTime(std::string_view text, int32_t& seconds);

/// Reads a point of time as a person names it: what ParseTime takes; "now"; "today" and "yesterday", the
/// local midnight at which the day began; or so long ago, a whole number with s, m, h, d or w ("90s", "2h",
/// "1w"). A day and a week have 24 and 168 hours.
[[nodiscard]] bool ParseMoment(std::string_view text, int64_t now, int32_t& seconds);

/// How far back a chart and a report look unless they are told.
inline constexpr int kDefaultDays = 30;

/// Local midnight at which the day of `seconds` began, `daysBefore` days earlier.
[[nodiscard]] int64_t StartOfLocalDay(int64_t seconds, int daysBefore = 0);
/// The full local hour in which `seconds` lies.
[[nodiscard]] int64_t StartOfLocalHour(int64_t seconds);

/// `seconds` since 1970 UTC as local ISO 8601 with the zone's offset, "2026-11-21T08:30:00+01:00". The plain
/// number where the calendar cannot hold it.
[[nodiscard]] std::string FormatLocalTime(int64_t seconds);
