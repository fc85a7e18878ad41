#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/ExitStatus.h"
#include "client/commands/CommandContext.h"
#include "client/events/EventsQuery.h"

/// The commands of lumctl, one routine each. Every one writes its answer to the console's output, a table or
/// JSON, and what went wrong as lines that begin with "lumctl: " to its error stream. A model that the agent
/// does not have is kFailed, and never asked about in a way that raises an alert.

/// Prints the socket's answer as it came, whatever the action's status. Without `arguments` none are sent;
/// "-" takes them from the console's input.
[[nodiscard]] ExitStatus InvokeAction(CommandContext& context, const std::string& action,
                                      const std::optional<std::string>& arguments);
[[nodiscard]] ExitStatus ListActions(CommandContext& context);
[[nodiscard]] ExitStatus ListModules(CommandContext& context);

[[nodiscard]] ExitStatus ListModels(CommandContext& context);
[[nodiscard]] ExitStatus ShowModel(CommandContext& context, const std::string& model);
[[nodiscard]] ExitStatus EnableModel(CommandContext& context, const std::string& model);
[[nodiscard]] ExitStatus DisableModel(CommandContext& context, const std::string& model);
/// Asks first where the model has events and `yes` is not set. The action itself does not say whether a model
/// is gone, so the listing is read before and after.
[[nodiscard]] ExitStatus DeleteModel(CommandContext& context, const std::string& model, bool yes);
/// Says for each definition file what became of it. kFailed where one was refused.
[[nodiscard]] ExitStatus ReloadModels(CommandContext& context);

struct CreateOptions {
    std::string model;
    std::optional<int32_t> device;
    std::optional<int32_t> group;
    std::vector<std::string> assignments;
};
[[nodiscard]] ExitStatus CreateEvent(CommandContext& context, const CreateOptions& options);
[[nodiscard]] ExitStatus ListEvents(CommandContext& context, const EventsQuery& query);

struct ExportOptions {
    EventsQuery query;
    std::string file = "-";
};
/// The same as a file of JSON lines or CSV, all of them unless a time is given; says how far it has come.
[[nodiscard]] ExitStatus ExportEvents(CommandContext& context, const ExportOptions& options);
[[nodiscard]] ExitStatus UploadEvents(CommandContext& context, const std::string& model);

struct PurgeOptions {
    std::string model;
    std::optional<int32_t> before;
    bool yes = false;
    bool dryRun = false;
};
/// Asks first, with the number of events, unless `yes` or `dryRun` is set.
[[nodiscard]] ExitStatus PurgeEvents(CommandContext& context, const PurgeOptions& options);

/// Changes the settings that are given, then shows all as the agent has them. kFailed where it did not keep
/// one.
[[nodiscard]] ExitStatus ShowSettings(CommandContext& context, const std::vector<std::string>& assignments);
[[nodiscard]] ExitStatus CreateAlert(CommandContext& context, const std::string& text,
                                     const std::optional<std::string>& status);

/// Prints a container file as JSON. Needs no agent.
[[nodiscard]] ExitStatus ShowFile(CommandContext& context, const std::string& path);

/// Every fault of the definition files, with line and column. kFailed where there is one. Needs no agent.
[[nodiscard]] ExitStatus CheckDefinitions(CommandContext& context, const std::vector<std::string>& paths);

struct QueryOptions {
    std::string sql;
    std::optional<std::string> database;
};
/// Runs one statement that reads on the module's database file. Needs no agent.
[[nodiscard]] ExitStatus QueryDatabase(CommandContext& context, const QueryOptions& options);

/// What the agent says of itself, and of what waits to be sent.
[[nodiscard]] ExitStatus ShowStatus(CommandContext& context);
[[nodiscard]] ExitStatus ShowOutbox(CommandContext& context);

struct ChartOptions {
    EventsQuery query;
    bool byHour = false;
    std::optional<std::string> per;  ///< "device", "group" or a parameter
};
/// Events over time as bars, the last day by hour or the last 30 days by day where no time is given.
[[nodiscard]] ExitStatus ShowChart(CommandContext& context, const ChartOptions& given);

struct ReportOptions {
    std::string file;
    std::optional<int32_t> since;
    std::optional<int32_t> until;
};
/// Writes one HTML page about all models. The last 30 days where no time is given.
[[nodiscard]] ExitStatus WriteReport(CommandContext& context, const ReportOptions& options);
