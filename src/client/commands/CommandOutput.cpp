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
#include "contract/Statuses.h"

ExitStatus Fail(CommandContext& context, ExitStatus exit, std::string_view error) {
    context.console.err << "lumctl: " << Harmless(error) << std::endl;
    return exit;
}

ExitStatus Fail(CommandContext& context, const AgentAnswer& answer) {
    static_cast<void>(Fail(context, answer.exit, answer.error));
    PrintMessages(context, answer);
    if (answer.status != kActionDone && answer.messages.empty()) {
        context.console.err << "lumctl: the agent's log says why" << std::endl;
    }
    return answer.exit;
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

ExitStatus FindModel(CommandContext& context, const std::string& model, bool& enabled) {
    const AgentAnswer list = FetchModelList(context.agent);
    if (!list.IsDone()) {
        return Fail(context, list);
    }
    for (const nlohmann::ordered_json& row : RowsOf(MemberOf(list.content, keys::kResult))) {
        if (MemberOf(row, keys::kModelName) == model) {
            enabled = MemberOf(row, keys::kModelEnabled) == true;
            return ExitStatus::kDone;
        }
    }
    const std::vector<std::string> names = NamesIn(list);
    std::string error = "there is no model '" + model + "'" + DidYouMean(model, names);
    return Fail(context, ExitStatus::kFailed,
                error + (names.empty() ? " (the agent has no model at all)" : ""));
}

ExitStatus FindModel(CommandContext& context, const std::string& model) {
    bool enabled = false;
    return FindModel(context, model, enabled);
}

ExitStatus FetchModel(CommandContext& context, const std::string& model, ModelDefinition& definition) {
    bool enabled = false;
    const ExitStatus found = FindModel(context, model, enabled);
    if (found != ExitStatus::kDone) {
        return found;
    }
    const AgentAnswer answer = CallAction(context.agent, actions::kGetModel, ModelRequest(model));
    if (!answer.IsDone()) {
        return Fail(context, answer);
    }
    if (!ModelDefinitionFromAnswer(answer.content, definition)) {
        return Fail(context, ExitStatus::kFailed,
                    "the agent's answer holds no definition of model '" + model + "'");
    }
    definition.enabled = enabled;
    return ExitStatus::kDone;
}

ExitStatus Confirm(CommandContext& context, std::string_view what, std::string_view question,
                   std::string_view refused) {
    if (!context.console.inIsTerminal) {
        return Fail(context, ExitStatus::kWrongCommandLine, std::string(what) + "; repeat with --yes");
    }
    context.console.err << Harmless(what) << ". " << Harmless(question) << " [y/N] " << std::flush;
    std::string reply;
    std::getline(context.console.in, reply);
    if (reply == "y" || reply == "Y" || reply == "yes") {
        return ExitStatus::kDone;
    }
    return Fail(context, ExitStatus::kFailed, refused);
}
