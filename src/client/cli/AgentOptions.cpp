#include "client/cli/CommandParser.h"

namespace {

/// What shows the agent's own words.
void AddRawCommands(CommandParser& parser) {
    Options& options = parser.GetOptions();
    CLI::App& invoke = parser.AddCommand(
        kAgentGroup, "invoke", "Call any action and print the agent's answer as it comes",
        [](CommandContext& context, const Options& given) {
            return InvokeAction(context, given.action, given.arguments);
        },
        {{"invoke EventLogManagerGetValues", "An action without arguments."},
         {R"(invoke EventLogManagerGetModel '{"Values": {"ModelName": "Logon"}}')", "One with."}});
    invoke.add_option("ACTION", options.action, "Name of the action")->required();
    invoke.add_option("JSON", options.arguments,
                      "The arguments, a JSON object; - reads it from standard input");
    CLI::App& show = parser.AddCommand(
        kAgentGroup, "show", "Print a container file as JSON; needs no agent",
        [](CommandContext& context, const Options& given) { return ShowFile(context, given.file); },
        {{"show /var/lib/lumagent/FileStore/outbox/20261121T083000Z-1-EventLogManagerEvents.cbor",
          "What is waiting to be sent."}});
    show.add_option("FILE", options.file, "The container file")->required();
}

}  // namespace

void AddAgentCommands(CommandParser& parser) {
    Options& options = parser.GetOptions();
    parser.AddCommand(kAgentGroup, "status", "Show how the agent is: health, models, sizes, what waits",
                      [](CommandContext& context, const Options&) { return ShowStatus(context); },
                      {{"status", "For people."}, {"status --output json", "All of it, for a program."}});
    parser.AddCommand(
        kAgentGroup, "outbox", "Show what waits to be sent",
        [](CommandContext& context, const Options&) { return ShowOutbox(context); },
        {{"outbox", "What waits, what a forwarder has sent without a receipt yet, the last receipt."}});
    CLI::App& settings = parser.AddCommand(
        kAgentGroup, "settings", "Show the settings of the event log, or change some",
        [](CommandContext& context, const Options& given) { return ShowSettings(context, given.settings); },
        {{"settings", "Shows them."},
         {"settings EnableUpload=off AlertMinimumGap=120", "Changes two and shows all."}});
    settings.add_option("KEY=VALUE", options.settings,
                        "EnableUpload, EnableAggregation (on or off), AlertMinimumGap (minutes)");
    CLI::App& alert = parser.AddCommand(kAgentGroup, "alert", "Send an alert to the Master",
                                        [](CommandContext& context, const Options& given) {
                                            return CreateAlert(context, given.alertText, given.alertStatus);
                                        },
                                        {{"alert \"Disk is full\" --status critical",
                                          "Its repeat within AlertMinimumGap minutes is held back."}});
    alert.add_option("TEXT", options.alertText, "What has happened")->required();
    alert
        .add_option("--status", options.alertStatus,
                    "The alert's status; alerts with another status are other alerts")
        ->type_name("TEXT");
    parser.AddCommand(kAgentGroup, "modules", "List the modules that are loaded",
                      [](CommandContext& context, const Options&) { return ListModules(context); },
                      {{"modules", "Names, files and versions."}});
    parser.AddCommand(kAgentGroup, "actions", "List the actions of all modules",
                      [](CommandContext& context, const Options&) { return ListActions(context); },
                      {{"actions", "What invoke can call."}});
    AddRawCommands(parser);
}
