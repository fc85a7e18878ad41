#pragma once

#include <cstdint>
#include <ctime>

#include "host/ini/IniFile.h"
#include "host/text/LumString.h"

/// What MachineEvents.ini says, read once at the start. A key that is missing, or that makes no sense, has
/// its default.
class Settings {
public:
    /// `now` is the moment of the start: it says how far back "BackfillDays" goes.
    Settings(const LumString& iniPath, std::time_t now) : ini_(iniPath), now_(now) {}

    /// `[<source>] Enabled`; true where nothing is said.
    [[nodiscard]] bool IsEnabled(const char* source) const;
    /// What happened before this moment is left out: `BackfillDays` of the source's own section, else of
    /// `[MachineEvents]`, else 30 days.
    [[nodiscard]] std::time_t OldestWanted(const char* source) const;
    /// `[<source>] IntervalSeconds` (300), in milliseconds.
    [[nodiscard]] uint32_t IntervalMs(const char* source) const;
    /// `[MachineEvents] RetrySeconds` (60), in milliseconds: how long a source that is not there is left
    /// alone.
    [[nodiscard]] uint32_t RetryMs() const;
    /// `[Packages] Log`
    [[nodiscard]] LumString PackageLog() const;
    /// `[Journal] Directory`; empty for the system's journal.
    [[nodiscard]] LumString JournalDirectory() const;

private:
    [[nodiscard]] int32_t Number(const char* section, const char* key, int32_t lowest, int32_t highest,
                                 int32_t otherwise) const;

    const IniFile ini_;
    const std::time_t now_;
};
