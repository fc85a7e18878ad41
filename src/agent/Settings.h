#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "agent/CommandLine.h"
#include "host/ini/IniFile.h"
#include "host/log/LumDebug.h"
#include "host/text/LumString.h"

/// What the agent runs with: agent.ini, and the command line over it.
struct Settings {
    LumString socketPath;
    LumString socketGroup;    ///< empty: the socket is the owner's alone
    LumString readGroup;      ///< empty: nobody reads who may not administer
    LumString createGroup;    ///< the same for creating
    LumString metricsListen;  ///< empty: metrics are on the control socket alone
    LumLogLevel logLevel = LumLogLevel::kPrint;
    uint32_t threads = 8;               ///< how many actions may run at once
    uint32_t clientTimeoutMs = 30'000;  ///< how long a client may stall
    uint32_t minFreeMb = 64;            ///< less free room below the data directory is unhealthy
    uint32_t stuckSeconds = 600;        ///< calls that wait so long in vain mean that the agent hangs
    std::size_t logMaxBytes = 10'000'000;
    std::size_t logMaxFiles = 5;
    /// (name, file) of each module in the order of loading.
    std::vector<std::pair<LumString, LumString>> modules;
    /// What was wrong, for the log: it can only be opened once its settings are known.
    std::vector<LumString> warnings;
};

/// Reads sections [Agent] and [Modules] of `ini`. A value that does not fit is one warning, and its default
/// is taken; a file that is missing or cannot be read is one warning and all defaults. `dataDirectory` ends
/// with a separator.
[[nodiscard]] Settings ReadSettings(const IniFile& ini, const CommandLine& commandLine,
                                    const LumString& dataDirectory);
