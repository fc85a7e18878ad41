#pragma once

#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "client/cli/CommandLine.h"

/// What a command line of lumctl came to.
struct ClientRun {
    ExitStatus exit = ExitStatus::kDone;
    std::string out;
    std::string err;
};

/// What a command line finds where it is run.
struct ClientTerminal {
    std::string input{};
    bool isTerminal = false;
    bool unicode = true;
    std::size_t columns = 80;
};

/// Runs the words after "lumctl" in the test's own process, with the agent at `socket`.
inline ClientRun RunClient(const std::string& socket, const std::vector<std::string>& words,
                           const ClientTerminal& terminal = {}) {
    std::vector<const char*> arguments{"lumctl"};
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    std::istringstream in(terminal.input);
    std::ostringstream out;
    std::ostringstream err;
    CommandLine commandLine;
    const std::optional<ExitStatus> ended =
        ParseCommandLine(static_cast<int>(arguments.size()), arguments.data(), commandLine, out, err);
    if (ended) {
        return {*ended, out.str(), err.str()};
    }
    AgentConnection agent({socket}, commandLine.timeout);
    Console console{in,
                    out,
                    err,
                    terminal.isTerminal,
                    terminal.isTerminal,
                    terminal.isTerminal,
                    terminal.isTerminal,
                    terminal.unicode,
                    terminal.columns};
    CommandContext context{agent, commandLine.output, console};
    const ExitStatus exit = commandLine.run(context);
    return {exit, out.str(), err.str()};
}
