#include <algorithm>
#include <cerrno>
#include <fstream>
#include <nlohmann/json.hpp>
#include <ostream>

#include "client/commands/CommandOutput.h"
#include "client/commands/Commands.h"
#include "client/events/EventListing.h"
#include "client/events/RowWriter.h"
#include "client/model/Requests.h"
#include "client/text/ProgressBar.h"
#include "client/text/Quantity.h"
#include "client/text/Suggestion.h"
#include "contract/Actions.h"
#include "host/text/LumSystemError.h"

namespace {

std::vector<std::string> ColumnsOf(const ModelDefinition& model) {
    std::vector<std::string> names(FixedColumns().begin(), FixedColumns().end());
    for (const ModelParameter& parameter : model.parameters) {
        names.push_back(parameter.name);
    }
    return names;
}

/// The model of a query, which has the column that it sorts by.
ModelDefinition FetchModelOf(const EventsQuery& query, AgentConnection& agent) {
    ModelDefinition model = FetchModel(agent, query.model);
    const std::vector<std::string> columns = ColumnsOf(model);
    if (query.sort && std::find(columns.begin(), columns.end(), *query.sort) == columns.end()) {
        throw ClientError("model '" + query.model + "' has no column '" + *query.sort + "' to sort by" +
                          DidYouMean(*query.sort, columns));
    }
    return model;
}

}  // namespace

ExitStatus CreateEvent(CommandContext& context, const CreateOptions& options) {
    const ModelDefinition definition = FetchModel(context.agent, options.model);
    Required(CallAction(context.agent, actions::kCreateEvent,
                        CreateRequest(options.model, CreateEventParams(definition, options.device,
                                                                       options.group, options.assignments))));
    if (definition.enabled) {
        return Done(context, "The agent took one event of model '" + options.model + "'.");
    }
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, {{"status", 0}, {"stored", false}});
        return ExitStatus::kDone;
    }
    return Done(context, "Model '" + options.model +
                             "' is disabled, so the agent dropped the event; lumctl enable " + options.model +
                             " lets the model take events again.");
}

ExitStatus ListEvents(CommandContext& context, const EventsQuery& query) {
    const ModelDefinition model = FetchModelOf(query, context.agent);
    const EventFilter filter(model, query);
    const auto writer = MakeRowWriter(context.output, model, context.console.out, context.console.colours);
    EventListing(context.agent, query, filter, *writer).Run();
    return ExitStatus::kDone;
}

ExitStatus ExportEvents(CommandContext& context, const ExportOptions& options) {
    const ModelDefinition model = FetchModelOf(options.query, context.agent);
    const EventFilter filter(model, options.query);
    const bool toFile = options.file != "-";
    std::ofstream file;
    if (toFile) {
        file.open(options.file, std::ios::binary | std::ios::trunc);
        if (!file) {
            return Fail(context, ExitStatus::kFailed,
                        options.file + ": " + std::string(LumSystemErrorText().View()));
        }
    }
    const OutputFormat format =
        context.output == OutputFormat::kTable ? OutputFormat::kJsonLines : context.output;
    const auto writer = MakeRowWriter(format, model, toFile ? file : context.console.out, false);
    ProgressBar bar(context.console.err,
                    context.console.errIsTerminal && (toFile || !context.console.outIsTerminal));
    EventListing listing(context.agent, options.query, filter, *writer);
    listing.SetProgress(
        [&](uint64_t read, int64_t total) { bar.Update(read, static_cast<uint64_t>(total), read); });
    listing.Run();
    bar.Erase();
    if (!toFile) {
        return ExitStatus::kDone;
    }
    file.close();
    if (!file) {
        return Fail(context, ExitStatus::kFailed, options.file + ": it could not be written whole");
    }
    context.console.err << CountText(listing.GetWritten(), "event") << " written to " << options.file << '\n';
    return ExitStatus::kDone;
}
