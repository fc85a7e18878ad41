#pragma once

#include <cstdint>
#include <ctime>
#include <string_view>

/// One step of a package, as a line of the package manager's log tells it:
/// "2026-11-21 16:05:27 upgrade libfoo:amd64 1.0-1 1.0-2". The parts are parts of the line.
struct PackageLine {
    std::string_view action;  ///< install, upgrade, remove or purge
    std::string_view package;
    std::string_view architecture;  ///< empty where none is given
    std::string_view oldVersion;
    std::string_view version;
};

/// The local time that a line of the log begins with, in seconds since 1970; -1 where there is none. An hour
/// that the clock shows twice counts as the one that the system's conversion takes it for.
[[nodiscard]] std::time_t TimeOfLine(std::string_view line);

/// False, and `parts` untouched, for every line that is not one of the four steps in exactly that form.
[[nodiscard]] bool ParsePackageLine(std::string_view line, PackageLine& parts);
