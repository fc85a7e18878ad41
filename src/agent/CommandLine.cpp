#include "agent/CommandLine.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <map>
#include <system_error>

namespace {

constexpr int kWrongCommandLine = 2;

/// `../modules` beside the directory of the running binary.
std::string DefaultModuleDirectory() {
    std::error_code error;
    const std::filesystem::path binary = std::filesystem::read_symlink("/proc/self/exe", error);
    return (binary.parent_path().parent_path() / "modules").string();
}

}  // namespace

std::optional<int> ReadCommandLine(int argc, const char* const* argv, CommandLine& commandLine) {
    CLI::App app("Loads modules, lets their actions in, and serves the control socket", "lumagent");
    commandLine.moduleDirectory = DefaultModuleDirectory();
    const std::map<std::string, LumLogLevel> levels{{"trace", LumLogLevel::kTrace},
                                                    {"print", LumLogLevel::kPrint},
                                                    {"warning", LumLogLevel::kWarning},
                                                    {"error", LumLogLevel::kError}};
    std::string levelName;
    app.set_version_flag("--version", LUM_VERSION, "Display program version information and exit");
    app.add_option("--config-dir", commandLine.configDirectory, "Directory of agent.ini and the modules' ini")
        ->required()
        ->type_name("DIR");
    app.add_option("--data-dir", commandLine.dataDirectory, "Directory of what the agent and modules store")
        ->required()
        ->type_name("DIR");
    app.add_option("--module-dir", commandLine.moduleDirectory, "Where module files lie")
        ->capture_default_str()
        ->type_name("DIR");
    app.add_option("--socket", commandLine.socketPath,
                   "Control socket (default: agent.sock in the data directory)")
        ->type_name("PATH");
    app.add_option("--log-level", levelName, "trace, print, warning or error (default: print)")
        ->check(CLI::IsMember(levels))
        ->type_name("LEVEL");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kWrongCommandLine;
    }
    if (!levelName.empty()) {
        commandLine.logLevel = levels.at(levelName);
    }
    return std::nullopt;
}
