#include "client/CommandLine.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <ostream>
#include <utility>

#include "client/Commands.h"
#include "client/Import.h"
#include "client/TextTable.h"
#include "client/TimeText.h"
#include "host/text/LumUtf8.h"

namespace {

constexpr char kTimeForms[] = "ISO 8601 (local time where it names no zone) or seconds since 1970 UTC";

/// An option that takes a point of time.
void AddTimeOption(CLI::App& command, const std::string& name, std::optional<int32_t>& seconds,
                   const std::string& help) {
    command
        .add_option_function<std::string>(
            name,
            [&seconds, name](const std::string& text) {
                int32_t value = 0;
                if (!ParseTime(text, value)) {
                    throw CLI::ValidationError(name, "'" + text + "' is no time; give " + kTimeForms);
                }
                seconds = value;
            },
            help)
        ->type_name("TIME");
}

/// Everything that the options of the commands are read into. Lives as long as the command that uses it.
struct Options {
    std::string action;
    std::optional<std::string> arguments;
    std::string model;
    CreateOptions create;
    std::string file;
    EventsQuery events;
    bool yes = false;
    std::optional<int32_t> before;
    std::vector<std::string> settings;
    std::string alertText;
    std::optional<std::string> alertStatus;
};

/// Builds the parser: one command after the other, each with the routine that carries it out.
class Parser {
public:
    explicit Parser(CommandLine& commandLine)
        : commandLine_(commandLine), app_("Speaks to a running agent over its control socket.", "lumctl") {
        app_.require_subcommand(0, 1);  // that there is one is checked with a message of its own
        app_.fallthrough();
        app_.add_option("--socket", commandLine_.socket, "The agent's control socket")
            ->envname("LUMCTL_SOCKET")
            ->default_str(kDefaultSocket)
            ->type_name("PATH");
        app_.add_option("--output", commandLine_.output, "table for people, json for programs")
            ->transform(CLI::CheckedTransformer(std::map<std::string, OutputFormat>{
                {"table", OutputFormat::kTable}, {"json", OutputFormat::kJson}}))
            ->option_text("table|json");
        app_.footer(
            "Exit status: 0 done; 1 the action's status is not 0, or the agent said no; 2 wrong command "
            "line;\n"
            "3 no agent answers.");
        AddAgentCommands();
        AddModelCommands();
        AddEventCommands();
    }

    CLI::App& GetApp() { return app_; }

private:
    CLI::App& AddCommand(const std::string& name, const std::string& help,
                         std::function<ExitStatus(CommandContext&, const Options&)> routine) {
        CLI::App* const command = app_.add_subcommand(name, help);
        command->callback([this, routine = std::move(routine)] {
            commandLine_.run = [options = options_, routine](CommandContext& context) {
                return routine(context, *options);
            };
        });
        return *command;
    }

    CLI::App& AddModelCommand(const std::string& name, const std::string& help,
                              std::function<ExitStatus(CommandContext&, const Options&)> routine) {
        CLI::App& command = AddCommand(name, help, std::move(routine));
        command.add_option("MODEL", options_->model, "The model's name")->required();
        return command;
    }

    void AddAgentCommands() {
        CLI::App& invoke = AddCommand("invoke", "Call any action and print the agent's answer as it comes",
                                      [](CommandContext& context, const Options& options) {
                                          return InvokeAction(context, options.action, options.arguments);
                                      });
        invoke.add_option("ACTION", options_->action, "Name of the action")->required();
        invoke.add_option("JSON", options_->arguments,
                          "The arguments, a JSON object; - reads it from standard input");
        AddCommand("actions", "List the actions of all modules",
                   [](CommandContext& context, const Options&) { return ListActions(context); });
        AddCommand("modules", "List the modules that are loaded",
                   [](CommandContext& context, const Options&) { return ListModules(context); });
        CLI::App& settings = AddCommand("settings", "Show the settings of the event log, or change some",
                                        [](CommandContext& context, const Options& options) {
                                            return ShowSettings(context, options.settings);
                                        });
        settings.add_option("KEY=VALUE", options_->settings,
                            "EnableUpload, EnableAggregation (on or off), AlertMinimumGap (minutes)");
        CLI::App& alert = AddCommand("alert", "Send an alert to the Master",
                                     [](CommandContext& context, const Options& options) {
                                         return CreateAlert(context, options.alertText, options.alertStatus);
                                     });
        alert.add_option("TEXT", options_->alertText, "What has happened")->required();
        alert.add_option("--status", options_->alertStatus,
                         "The alert's status; alerts with another status are other alerts");
        CLI::App& show = AddCommand(
            "show", "Print a container file as JSON; needs no agent",
            [](CommandContext& context, const Options& options) { return ShowFile(context, options.file); });
        show.add_option("FILE", options_->file, "The container file")->required();
    }

    void AddModelCommands() {
        AddCommand("models", "List the models",
                   [](CommandContext& context, const Options&) { return ListModels(context); });
        AddModelCommand("model", "Show one model with its parameters",
                        [](CommandContext& context, const Options& options) {
                            return ShowModel(context, options.model);
                        });
        AddModelCommand("enable", "Let a model take events",
                        [](CommandContext& context, const Options& options) {
                            return EnableModel(context, options.model);
                        });
        AddModelCommand("disable", "Drop a model's new events",
                        [](CommandContext& context, const Options& options) {
                            return DisableModel(context, options.model);
                        });
        CLI::App& remove = AddModelCommand("delete", "Delete a model with all its events",
                                           [](CommandContext& context, const Options& options) {
                                               return DeleteModel(context, options.model, options.yes);
                                           });
        remove.add_flag("--yes", options_->yes, "Do not ask, even where the model has events");
        AddCommand("reload", "Take in new model files",
                   [](CommandContext& context, const Options&) { return ReloadModels(context); });
    }

    void AddEventCommands() {
        CLI::App& create =
            AddCommand("create", "Create one event", [](CommandContext& context, const Options& options) {
                return CreateEvent(context, options.create);
            });
        create.add_option("MODEL", options_->create.model, "The model's name")->required();
        create.add_option("--device", options_->create.device, "Device id (0 where not given)");
        create.add_option("--group", options_->create.group, "Group id (0 where not given)");
        create.add_option("PARAM=VALUE", options_->create.assignments,
                          "The event's values, typed as the model defines them");
        CLI::App& import = AddModelCommand("import", "Create one event for each line of JSON",
                                           [](CommandContext& context, const Options& options) {
                                               return ImportEvents(context, options.model, options.file);
                                           });
        import.add_option("FILE", options_->file, "The file; - reads standard input")->required();
        AddEventsCommand();
        AddModelCommand("upload", "Have a model's new events sent to the Master",
                        [](CommandContext& context, const Options& options) {
                            return UploadEvents(context, options.model);
                        });
        CLI::App& purge = AddModelCommand("purge", "Have a model's old events deleted",
                                          [](CommandContext& context, const Options& options) {
                                              return PurgeEvents(context, options.model, options.before);
                                          });
        AddTimeOption(purge, "--before", options_->before,
                      "Delete the events before this time (now where not given, so all of them)");
    }

    void AddEventsCommand() {
        EventsQuery& query = options_->events;
        CLI::App& events = AddCommand("events", "Show the events of a model",
                                      [](CommandContext& context, const Options& options) {
                                          return ListEvents(context, options.events);
                                      });
        events.add_option("MODEL", query.model, "The model's name")->required();
        AddTimeOption(events, "--since", query.since,
                      "Events at this time or later. Not together with --until: the agent answers status 1");
        AddTimeOption(
            events, "--until", query.until,
            "Events at this time or earlier. Not together with --since: the agent answers status 1");
        CLI::Option* const size = events.add_option("--page-size", query.pageSize, "At most so many events")
                                      ->check(CLI::Range(1, std::numeric_limits<int32_t>::max()));
        events
            .add_option("--page", query.page,
                        "Begin with event number N: page 2 begins one event after page 1, not one page")
            ->check(CLI::Range(1, std::numeric_limits<int32_t>::max()))
            ->needs(size);
        events.add_option("--sort", query.sort,
                          "EventDate (the default), EventDeviceId, EventGroupId or a parameter");
        events.add_flag("--desc", query.descending, "Sort downwards");
        events.footer("Times are " + std::string(kTimeForms) + ".");
    }

    CommandLine& commandLine_;
    std::shared_ptr<Options> options_ = std::make_shared<Options>();
    CLI::App app_;
};

}  // namespace

std::optional<ExitStatus> ParseCommandLine(int argc, const char* const* argv, CommandLine& commandLine,
                                           std::ostream& out, std::ostream& err) {
    for (int i = 1; i < argc; ++i) {
        if (!LumIsUtf8(argv[i])) {
            err << "lumctl: argument " << i << " is no UTF-8: " << Harmless(argv[i]) << '\n';
            return ExitStatus::kWrongCommandLine;
        }
    }
    commandLine.socket = kDefaultSocket;
    Parser parser(commandLine);
    try {
        parser.GetApp().parse(argc, argv);
        if (!commandLine.run) {
            throw CLI::RequiredError("A command");
        }
    } catch (const CLI::Success&) {
        out << parser.GetApp().help();
        return ExitStatus::kDone;
    } catch (const CLI::ParseError& error) {
        err << "lumctl: " << Harmless(error.what())
            << "\nlumctl: see lumctl --help, or lumctl COMMAND --help\n";
        return ExitStatus::kWrongCommandLine;
    }
    return std::nullopt;
}
