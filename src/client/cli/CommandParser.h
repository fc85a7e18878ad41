#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/cli/CommandLine.h"
#include "client/cli/Options.h"

/// An example of a command, for its help and its manual page: what is typed after "lumctl ", and what for.
struct Example {
    std::string_view line;
    std::string_view purpose;
};

/// The parser of the command line: all commands with their options, help and examples. The one source of what
/// is parsed, of the help, of the manual pages and of completion. Only sources of cli/ include this header.
class CommandParser {
public:
    using Routine = std::function<ExitStatus(CommandContext&, const Options&)>;

    explicit CommandParser(CommandLine& commandLine);

    [[nodiscard]] CLI::App& GetApp() { return app_; }
    [[nodiscard]] Options& GetOptions() { return *options_; }

    /// Adds a command under the heading `group` of the list of commands.
    CLI::App& AddCommand(std::string_view group, const std::string& name, const std::string& help,
                         Routine routine, std::initializer_list<Example> examples);
    /// One whose first argument is a model's name, which is read into Options::model.
    CLI::App& AddModelCommand(std::string_view group, const std::string& name, const std::string& help,
                              Routine routine, std::initializer_list<Example> examples);
    /// An option that takes a point of time.
    static void AddTimeOption(CLI::App& command, const std::string& name, std::optional<int32_t>& seconds,
                              const std::string& help);

private:
    CommandLine& commandLine_;
    std::shared_ptr<Options> options_ = std::make_shared<Options>();
    CLI::App app_;
};

/// The headings of the list of commands.
inline constexpr std::string_view kEventsGroup = "Events";
inline constexpr std::string_view kPicturesGroup = "Pictures";
inline constexpr std::string_view kModelsGroup = "Models";
inline constexpr std::string_view kAgentGroup = "Agent";
inline constexpr std::string_view kHelpGroup = "Help";

void AddEventCommands(CommandParser& parser);
void AddTransferCommands(CommandParser& parser);
void AddPictureCommands(CommandParser& parser);
void AddModelCommands(CommandParser& parser);
void AddAgentCommands(CommandParser& parser);
void AddHelpCommands(CommandParser& parser);

/// The names of all commands in the order of the help.
[[nodiscard]] std::vector<std::string> CommandNames(const CLI::App& app);
/// The command of that name; null where there is none.
[[nodiscard]] const CLI::App* FindCommand(const CLI::App& app, std::string_view name);
