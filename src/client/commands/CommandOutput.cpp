#include "client/commands/CommandOutput.h"

#include <algorithm>
#include <istream>
#include <nlohmann/json.hpp>
#include <ostream>

#include "client/connection/Answer.h"
#include "client/model/Requests.h"
#include "client/text/Suggestion.h"
#include "client/text/TextTable.h"
#include "contract/Actions.h"
#include "contract/ContainerKeys.h"

ExitStatus Fail(CommandContext& context, ExitStatus exit, std::string_view error) {
    context.console.err << "lumctl: " << Harmless(error) << std::endl;
    return exit;
}

ExitStatus Fail(CommandContext& context, const ClientError& error) {
    static_cast<void>(Fail(context, error.GetExit(), error.what()));
    for (const std::string& detail : error.GetDetails()) {
        static_cast<void>(Fail(context, error.GetExit(), detail));
    }
    return error.GetExit();
}

void PrintMessages(CommandContext& context, const AgentAnswer& answer) {
    for (const std::string& message : answer.messages) {
        context.console.err << "lumctl: agent: " << Harmless(message) << std::endl;
    }
}

void PrintJson(CommandContext& context, const nlohmann::ordered_json& json) {
    context.console.out << json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

nlohmann::ordered_json FaultsToJson(const std::vector<DefinitionFault>& faults) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const DefinitionFault& fault : faults) {
        list.push_back(
            {{"line", fault.position.line}, {"column", fault.position.column}, {"text", fault.text}});
    }
    return list;
}

ExitStatus Done(CommandContext& context, std::string_view sentence) {
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, {{"status", 0}});
    } else {
        context.console.out << Harmless(sentence) << '\n';
    }
    return ExitStatus::kDone;
}

AgentAnswer FetchModelList(AgentConnection& agent) {
    return CallAction(agent, actions::kGetModelNames, nlohmann::ordered_json::object());
}

std::vector<std::string> NamesIn(const AgentAnswer& modelList) {
    std::vector<std::string> names;
    for (const nlohmann::ordered_json& row : RowsOf(MemberOf(modelList.content, keys::kResult))) {
        names.push_back(TextOf(MemberOf(row, keys::kModelName)));
    }
    return names;
}

bool FindModel(AgentConnection& agent, const std::string& model) {
    const AgentAnswer list = Required(FetchModelList(agent));
    for (const nlohmann::ordered_json& row : RowsOf(MemberOf(list.content, keys::kResult))) {
        if (MemberOf(row, keys::kModelName) == model) {
            return MemberOf(row, keys::kModelEnabled) == true;
        }
    }
    const std::vector<std::string> names = NamesIn(list);
    throw ClientError("there is no model '" + model + "'" + DidYouMean(model, names) +
                          (names.empty() ? " (the agent has no model at all)" : ""),
                      ExitStatus::kFailed);
}

ModelDefinition FetchModel(AgentConnection& agent, const std::string& model) {
    const bool enabled = FindModel(agent, model);
    const AgentAnswer answer = Required(CallAction(agent, actions::kGetModel, ModelRequest(model)));
    std::optional<ModelDefinition> definition = ModelDefinitionFromAnswer(answer.content);
    if (!definition) {
        throw ClientError("the agent's answer holds no definition of model '" + model + "'",
                          ExitStatus::kFailed);
    }
    definition->enabled = enabled;
    return *std::move(definition);
}

void Confirm(CommandContext& context, const std::string& what, std::string_view question,
             const std::string& refused) {
    if (!context.console.inIsTerminal) {
        throw ClientError(what + "; repeat with --yes");
    }
    context.console.err << Harmless(what) << ". " << Harmless(question) << " [y/N] " << std::flush;
    std::string reply;
    std::getline(context.console.in, reply);
    if (reply != "y" && reply != "Y" && reply != "yes") {
        throw ClientError(refused, ExitStatus::kFailed);
    }
}
