#include <exception>
#include <iostream>

#include <unistd.h>

#include "client/CommandLine.h"

namespace {

ExitStatus Run(int argc, char** argv) {
    CommandLine commandLine;
    if (const auto ended = ParseCommandLine(argc, argv, commandLine, std::cout, std::cerr)) {
        return *ended;
    }
    AgentConnection agent(commandLine.socket);
    Console console{std::cin, std::cout, std::cerr, isatty(STDIN_FILENO) == 1, isatty(STDERR_FILENO) == 1};
    CommandContext context{agent, commandLine.output, console};
    const ExitStatus exit = commandLine.run(context);
    std::cout.flush();
    if (!std::cout) {
        std::cerr << "lumctl: the answer could not be written\n";
        return exit == ExitStatus::kDone ? ExitStatus::kFailed : exit;
    }
    return exit;
}

}  // namespace

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    try {
        return static_cast<int>(Run(argc, argv));
    } catch (const std::exception& failure) {
        // Memory that runs out on a huge answer ends up here.
        std::cerr << "lumctl: " << failure.what() << '\n';
        return static_cast<int>(ExitStatus::kFailed);
    }
}
