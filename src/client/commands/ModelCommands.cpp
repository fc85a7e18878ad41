#include <ostream>

#include "client/commands/CommandOutput.h"
#include "client/commands/Commands.h"
#include "client/connection/Answer.h"
#include "client/model/Requests.h"
#include "client/text/TextTable.h"
#include "contract/Actions.h"
#include "contract/ContainerKeys.h"

namespace {

using Json = nlohmann::ordered_json;

/// For an action that takes a model's name and answers its status alone.
ExitStatus CallForModel(CommandContext& context, std::string_view action, const std::string& model,
                        std::string_view outcome) {
    FindModel(context.agent, model);
    Required(CallAction(context.agent, action, ModelRequest(model)));
    return Done(context, "Model '" + model + "' " + std::string(outcome));
}

}  // namespace

ExitStatus ListModels(CommandContext& context) {
    const AgentAnswer answer = Required(FetchModelList(context.agent));
    const Json rows = RowsOf(MemberOf(answer.content, keys::kResult));
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, rows);
        return ExitStatus::kDone;
    }
    TextTable table;
    for (const std::string_view title : {"Model", "Class", "Enabled", "Note"}) {
        table.AddColumn(title);
    }
    for (const Json& row : rows) {
        table.AddRow({TextOf(MemberOf(row, keys::kModelName)), TextOf(MemberOf(row, keys::kModelClass)),
                      MemberOf(row, keys::kModelEnabled) == true ? "yes" : "no",
                      TextOf(MemberOf(row, keys::kModelNote))});
    }
    context.console.out << table.Render();
    return ExitStatus::kDone;
}

ExitStatus ShowModel(CommandContext& context, const std::string& model) {
    const ModelDefinition definition = FetchModel(context.agent, model);
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

ExitStatus UploadEvents(CommandContext& context, const std::string& model) {
    return CallForModel(context, actions::kUploadEvents, model, "is queued for upload.");
}
