#pragma once

#include <functional>
#include <iosfwd>
#include <optional>
#include <string>

#include "client/CommandContext.h"
#include "client/ExitStatus.h"

/// What a command line asks for.
struct CommandLine {
    std::string socket;  ///< path of the agent's control socket
    OutputFormat output = OutputFormat::kTable;
    std::function<ExitStatus(CommandContext&)> run;
};

/// Where the socket is when neither --socket nor the environment variable LUMCTL_SOCKET says so.
inline constexpr char kDefaultSocket[] = "/var/lib/lumagent/agent.sock";

/// Reads the command line. Answers how to end where there is nothing to run: kDone after help, which goes to
/// `out`, kWrongCommandLine after an error, which goes to `err`.
[[nodiscard]] std::optional<ExitStatus> ParseCommandLine(int argc, const char* const* argv,
                                                         CommandLine& commandLine, std::ostream& out,
                                                         std::ostream& err);
