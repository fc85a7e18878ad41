#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>

#include "client/ExitStatus.h"
#include "client/commands/CommandContext.h"

/// What a command line asks for.
struct CommandLine {
    std::optional<std::string> socket;  ///< path of the agent's control socket, where it is named
    std::chrono::milliseconds timeout = AgentConnection::kAnswerTimeout;
    OutputFormat output = OutputFormat::kTable;
    std::function<ExitStatus(CommandContext&)> run;
};

/// Reads the command line. Answers how to end where there is nothing to run: kDone after help, which goes to
/// `out`, kWrongCommandLine after an error, which goes to `err`. No mistake that is found here reaches the
/// agent.
[[nodiscard]] std::optional<ExitStatus> ParseCommandLine(int argc, const char* const* argv,
                                                         CommandLine& commandLine, std::ostream& out,
                                                         std::ostream& err);
