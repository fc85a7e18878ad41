#include "client/CommandOutput.h"

#include <ostream>

#include "client/Requests.h"
#include "client/TextTable.h"
#include "contract/Actions.h"

ExitStatus Fail(CommandContext& context, ExitStatus exit, std::string_view error) {
    context.console.err << "lumctl: " << Harmless(error) << std::endl;
    return exit;
}

ExitStatus Fail(CommandContext& context, const AgentAnswer& answer) {
    return Fail(context, answer.exit, answer.error);
}

void PrintJson(CommandContext& context, const nlohmann::ordered_json& json) {
    context.console.out << json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

ExitStatus Done(CommandContext& context, std::string_view sentence) {
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, {{"status", 0}});
    } else {
        context.console.out << Harmless(sentence) << '\n';
    }
    return ExitStatus::kDone;
}

AgentAnswer FetchModel(AgentConnection& agent, const std::string& model, ModelDefinition& definition) {
    AgentAnswer answer = CallAction(agent, actions::kGetModel, ModelRequest(model));
    if (answer.IsDone() && !ModelDefinitionFromAnswer(answer.content, definition)) {
        answer.exit = ExitStatus::kFailed;
        answer.error = "the agent's answer holds no definition of model '" + model + "'";
    }
    return answer;
}
