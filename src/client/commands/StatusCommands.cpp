#include <ctime>
#include <nlohmann/json.hpp>
#include <ostream>

#include "client/commands/CommandOutput.h"
#include "client/commands/Commands.h"
#include "client/commands/StatusPage.h"
#include "client/connection/Answer.h"
#include "client/status/StatusText.h"

ExitStatus ShowStatus(CommandContext& context) {
    const AgentAnswer status = Required(FetchStatus(context.agent));
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, status.content);
    } else {
        context.console.out << StatusAsText(status.content, context.console.colours);
    }
    return ExitStatus::kDone;
}

ExitStatus ShowOutbox(CommandContext& context) {
    const AgentAnswer status = Required(FetchStatus(context.agent));
    const nlohmann::ordered_json& outbox = StatusMember(status.content, "outbox");
    if (!outbox.is_object()) {
        return Fail(
            context, ExitStatus::kFailed,
            "the agent does not tell about its outbox; is the module FileStore loaded? (lumctl modules)");
    }
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, outbox);
        return ExitStatus::kDone;
    }
    context.console.out << OutboxAsText(outbox, std::time(nullptr));
    return ExitStatus::kDone;
}
