#include <algorithm>
#include <istream>
#include <ostream>

#include "client/Answer.h"
#include "client/CommandOutput.h"
#include "client/Commands.h"
#include "client/TextTable.h"
#include "contract/Actions.h"

namespace {

using Json = nlohmann::ordered_json;

AgentAnswer FetchModelList(AgentConnection& agent) {
    return CallAction(agent, actions::kGetModelNames, Json::object());
}

bool HasModel(const AgentAnswer& list, const std::string& model) {
    const Json& names = MemberOf(MemberOf(list.content, "Result"), "ModelName");
    return names.is_array() && std::find(names.begin(), names.end(), model) != names.end();
}

/// For an action that takes a model's name and answers its status alone.
ExitStatus CallForModel(CommandContext& context, std::string_view action, const std::string& model,
                        std::string_view outcome) {
    const AgentAnswer answer = CallAction(context.agent, action, ModelRequest(model));
    return answer.IsDone() ? Done(context, "Model '" + model + "' " + std::string(outcome))
                           : Fail(context, answer);
}

/// Whether the user wants the model's events gone with it.
ExitStatus ConfirmDeletion(CommandContext& context, const std::string& model) {
    EventsQuery query;
    query.model = model;
    query.pageSize = 1;
    const AgentAnswer answer = CallAction(context.agent, actions::kGetEvents, EventsRequest(query));
    if (answer.exit == ExitStatus::kNoAgent) {
        return Fail(context, answer);
    }
    const Json& count = MemberOf(MemberOf(answer.content, "Result"), "EventCount");
    if (count == 0) {
        return ExitStatus::kDone;
    }
    const std::string events =
        count.is_number() ? count.dump() + " events" : std::string("an unknown number of events");
    if (!context.console.inIsTerminal) {
        return Fail(context, ExitStatus::kWrongCommandLine,
                    "model '" + model + "' has " + events + ", which would go with it; repeat with --yes");
    }
    context.console.err << Harmless("Model '" + model + "' has " + events +
                                    ", which go with it. Delete it? [y/N] ")
                        << std::flush;
    std::string reply;
    std::getline(context.console.in, reply);
    if (reply == "y" || reply == "Y" || reply == "yes") {
        return ExitStatus::kDone;
    }
    return Fail(context, ExitStatus::kFailed, "model '" + model + "' was not deleted");
}

}  // namespace

ExitStatus ListModels(CommandContext& context) {
    const AgentAnswer answer = FetchModelList(context.agent);
    if (!answer.IsDone()) {
        return Fail(context, answer);
    }
    const Json rows = RowsOf(MemberOf(answer.content, "Result"));
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, rows);
        return ExitStatus::kDone;
    }
    TextTable table;
    for (const std::string_view title : {"Model", "Class", "Enabled", "Note"}) {
        table.AddColumn(title);
    }
    for (const Json& row : rows) {
        table.AddRow({TextOf(MemberOf(row, "ModelName")), TextOf(MemberOf(row, "ModelClass")),
                      MemberOf(row, "ModelEnabled") == true ? "yes" : "no",
                      TextOf(MemberOf(row, "ModelNote"))});
    }
    context.console.out << table.Render();
    return ExitStatus::kDone;
}

ExitStatus ShowModel(CommandContext& context, const std::string& model) {
    ModelDefinition definition;
    const AgentAnswer answer = FetchModel(context.agent, model, definition);
    if (!answer.IsDone()) {
        return Fail(context, answer);
    }
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, ModelDefinitionToJson(definition));
        return ExitStatus::kDone;
    }
    TextTable parameters;
    parameters.AddColumn("Parameter");
    parameters.AddColumn("Type");
    for (const ModelParameter& parameter : definition.parameters) {
        parameters.AddRow({parameter.name, parameter.type});
    }
    context.console.out << "Model:    " << Harmless(definition.name) << '\n'
                        << "Class:    " << Harmless(definition.modelClass) << '\n'
                        << "Severity: " << Harmless(definition.severity) << '\n'
                        << "Note:     " << Harmless(definition.note) << "\n\n"
                        << parameters.Render();
    return ExitStatus::kDone;
}

ExitStatus EnableModel(CommandContext& context, const std::string& model) {
    return CallForModel(context, actions::kEnableModel, model, "is enabled.");
}

ExitStatus DisableModel(CommandContext& context, const std::string& model) {
    return CallForModel(context, actions::kDisableModel, model, "is disabled.");
}

ExitStatus DeleteModel(CommandContext& context, const std::string& model, bool yes) {
    const AgentAnswer before = FetchModelList(context.agent);
    if (!before.IsDone()) {
        return Fail(context, before);
    }
    if (!HasModel(before, model)) {
        return Fail(context, ExitStatus::kFailed, "there is no model '" + model + "'");
    }
    if (!yes) {
        const ExitStatus confirmed = ConfirmDeletion(context, model);
        if (confirmed != ExitStatus::kDone) {
            return confirmed;
        }
    }
    const AgentAnswer answer =
        CallAction(context.agent, actions::kDeleteModels, DeleteModelsRequest({model}));
    if (!answer.IsDone()) {
        return Fail(context, answer);
    }
    const AgentAnswer after = FetchModelList(context.agent);
    if (!after.IsDone()) {
        return Fail(context, after);
    }
    if (HasModel(after, model)) {
        return Fail(context, ExitStatus::kFailed,
                    "model '" + model + "' could not be deleted; the agent's log says why");
    }
    return Done(context, "Model '" + model + "' is deleted.");
}

ExitStatus ReloadModels(CommandContext& context) {
    const AgentAnswer answer = CallAction(context.agent, actions::kReloadModels, Json::object());
    return answer.IsDone()
               ? Done(context, "The model files were read; the agent's log says what was taken in.")
               : Fail(context, answer);
}

ExitStatus UploadEvents(CommandContext& context, const std::string& model) {
    return CallForModel(context, actions::kUploadEvents, model, "is queued for upload.");
}
