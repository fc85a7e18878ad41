#include <cstdlib>
#include <exception>
#include <iostream>

#include <sys/ioctl.h>
#include <unistd.h>

#include "client/cli/CommandLine.h"
#include "client/connection/SocketSearch.h"
#include "host/log/LumDebug.h"

namespace {

/// Colours are for a terminal, unless its user (NO_COLOR) or its kind (TERM=dumb) does without them.
bool WantsColours(bool isTerminal) {
    const char* const refused = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe): one thread
    const char* const kind = std::getenv("TERM");         // NOLINT(concurrency-mt-unsafe): one thread
    return isTerminal && (refused == nullptr || *refused == '\0') && kind != nullptr &&
           std::string_view(kind) != "dumb";
}

/// The locale as POSIX orders its variables: the first that is set decides.
bool HasUnicode() {
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): one thread
        if (value != nullptr && *value != '\0') {
            const std::string_view locale(value);
            return locale.find("UTF-8") != std::string_view::npos ||
                   locale.find("utf8") != std::string_view::npos;
        }
    }
    return false;
}

std::size_t ColumnsOf(int descriptor) {
    constexpr std::size_t kUsual = 80;
    winsize size{};
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

ExitStatus Run(int argc, char** argv) {
    CommandLine commandLine;
    if (const auto ended = ParseCommandLine(argc, argv, commandLine, std::cout, std::cerr)) {
        return *ended;
    }
    // What the libraries have to say is part of lumctl's own messages.
    LumDebugContext::Default().SetLevel(LumLogLevel::kError);
    AgentConnection agent(SocketCandidates(commandLine.socket), commandLine.timeout);
    const bool outIsTerminal = isatty(STDOUT_FILENO) == 1;
    Console console{std::cin,
                    std::cout,
                    std::cerr,
                    isatty(STDIN_FILENO) == 1,
                    outIsTerminal,
                    isatty(STDERR_FILENO) == 1,
                    WantsColours(outIsTerminal),
                    HasUnicode(),
                    ColumnsOf(STDOUT_FILENO)};
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
