#pragma once

#include <cstdint>
#include <string_view>

/// What the files of /proc say of the machine's load (proc(5)); a value that is missing is 0.

struct LoadAverages {
    double minutes1 = 0;
    double minutes5 = 0;
    double minutes15 = 0;
};
/// /proc/loadavg
[[nodiscard]] LoadAverages ParseLoadAverages(std::string_view text);

/// The value of `key` in /proc/meminfo, in KiB.
[[nodiscard]] uint64_t ParseMemoryKiB(std::string_view text, std::string_view key);

/// Percent of the last 300 seconds in which some work waited, by a file of /proc/pressure.
[[nodiscard]] double ParsePressure(std::string_view text);
