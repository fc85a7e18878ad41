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

/// Reads the command line into `commandLine`. Returns nothing where the agent is to run. Else the help or the
/// error has been written, and the result is the exit status of the process: 0 after --help, 2 for a wrong
/// command line.
[[nodiscard]] std::optional<int> ReadCommandLine(int argc, const char* const* argv, CommandLine& commandLine);
