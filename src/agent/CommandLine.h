#pragma once

#include <optional>
#include <string>

#include "host/log/LumDebug.h"

/// What stands on the command line. A setting that stands there wins over the one in agent.ini.
struct CommandLine {
    std::string configDirectory;
    std::string dataDirectory;
    std::string moduleDirectory;
    std::optional<std::string> socketPath;
    std::optional<LumLogLevel> logLevel;
};

/// Reads the command line into `commandLine`. Nothing is returned where the agent is to run; else the exit
/// status of a process that ends at once: 0 after --help, 2 for a wrong command line, and what there is to
/// say was written.
[[nodiscard]] std::optional<int> ReadCommandLine(int argc, const char* const* argv, CommandLine& commandLine);
