#include "client/cli/CommandParser.h"

#include <ctime>
#include <map>
#include <utility>

#include "client/text/TimeText.h"

namespace {

/// What is parsed as seconds must leave room for the milliseconds of a wait.
constexpr double kMaxTimeoutSeconds = 1000000;

void AddCommonOptions(CLI::App& app, CommandLine& commandLine) {
    app.add_option("--socket", commandLine.socket,
                   "The agent's control socket. Else LUMCTL_SOCKET names it; else it is looked for at "
                   "/run/lumagent/agent.sock, then at /var/lib/lumagent/agent.sock")
        ->type_name("PATH");
    app.add_option_function<double>(
           "--timeout",
           [&commandLine](const double& seconds) {
               commandLine.timeout = std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000));
           },
           "How long an answer of the agent may take (30)")
        ->check(CLI::Range(0.001, kMaxTimeoutSeconds))
        ->type_name("SECONDS");
    app.add_option_function<std::string>(
           "--output",
           [&commandLine](const std::string& name) {
               static const std::map<std::string, OutputFormat> kFormats{{"table", OutputFormat::kTable},
                                                                         {"json", OutputFormat::kJson},
                                                                         {"jsonl", OutputFormat::kJsonLines},
                                                                         {"csv", OutputFormat::kCsv}};
               const auto format = kFormats.find(name);
               if (format == kFormats.end()) {
                   throw CLI::ValidationError("--output",
                                              "'" + name + "' is not one of table, json, jsonl, csv");
               }
               commandLine.output = format->second;
           },
           "A table for people, the others for programs; jsonl and csv for lists of events")
        ->type_name("table|json|jsonl|csv");
}

}  // namespace

CommandParser::CommandParser(CommandLine& commandLine)
    : commandLine_(commandLine), app_("Speaks to a running agent over its control socket.", "lumctl") {
    app_.require_subcommand(0, 1);  // that there is one is checked with a message of its own
    app_.fallthrough();
    app_.set_help_flag("-h,--help", "Show this help");
    app_.set_version_flag("--version", "lumctl " LUM_VERSION, "Show the version");
    AddCommonOptions(app_, commandLine_);
    AddEventCommands(*this);
    AddTransferCommands(*this);
    AddPictureCommands(*this);
    AddModelCommands(*this);
    AddAgentCommands(*this);
    AddHelpCommands(*this);
}

CLI::App& CommandParser::AddCommand(std::string_view group, const std::string& name, const std::string& help,
                                    Routine routine, std::initializer_list<Example> examples) {
    CLI::App* const command = app_.add_subcommand(name, help);
    command->group(std::string(group));
    std::string footer;
    for (const Example& example : examples) {
        footer.append("lumctl ").append(example.line).append("\n").append(example.purpose).append("\n");
    }
    command->footer(footer);
    command->callback([this, routine = std::move(routine)] {
        commandLine_.run = [options = options_, routine](CommandContext& context) {
            return routine(context, *options);
        };
    });
    return *command;
}

CLI::App& CommandParser::AddModelCommand(std::string_view group, const std::string& name,
                                         const std::string& help, Routine routine,
                                         std::initializer_list<Example> examples) {
    CLI::App& command = AddCommand(group, name, help, std::move(routine), examples);
    command.add_option("MODEL", options_->model, "The model's name")->required();
    return command;
}

void CommandParser::AddTimeOption(CLI::App& command, const std::string& name, std::optional<int32_t>& seconds,
                                  const std::string& help) {
    command
        .add_option_function<std::string>(
            name,
            [&seconds, name](const std::string& text) {
                int32_t value = 0;
                if (!ParseMoment(text, std::time(nullptr), value)) {
                    throw CLI::ValidationError(
                        name, "'" + text +
                                  "' is not a time; give 2026-11-20, 2026-11-20T08:30, seconds since 1970, "
                                  "30m, 1h, 2d, 1w (so long ago), today, yesterday or now");
                }
                seconds = value;
            },
            help)
        ->type_name("TIME");
}

std::vector<std::string> CommandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands(nullptr)) {
        if (!command->get_group().empty()) {
            names.push_back(command->get_name());
        }
    }
    return names;
}

const CLI::App* FindCommand(const CLI::App& app, std::string_view name) {
    for (const CLI::App* command : app.get_subcommands(nullptr)) {
        if (command->get_name() == name) {
            return command;
        }
    }
    return nullptr;
}
