#include "client/commands/StatusPage.h"

#include <nlohmann/json.hpp>

#include "client/connection/Answer.h"

using Json = nlohmann::ordered_json;

const Json& StatusMember(const Json& status, std::string_view name) {
    const Json& own = MemberOf(status, name);
    if (!own.is_null() || !status.is_object()) {
        return own;
    }
    for (const Json& part : status) {
        const Json& found = MemberOf(part, name);
        if (!found.is_null()) {
            return found;
        }
    }
    return own;
}

AgentAnswer FetchStatus(AgentConnection& agent) {
    AgentAnswer status = AskFor(agent, "/status");
    if (status.httpStatus == kHttpNotFound) {
        status.error =
            "this agent is older than its client and does not tell its status; lumctl modules shows "
            "its version";
    }
    return status;
}

std::optional<int32_t> FetchLastUpload(AgentConnection& agent, const std::string& model) {
    const AgentAnswer status = FetchStatus(agent);
    const Json& models = StatusMember(status.content, "models");
    if (!models.is_array()) {
        return std::nullopt;
    }
    for (const Json& entry : models) {
        if (MemberOf(entry, "name") == model) {
            const Json& uploaded = MemberOf(entry, "lastUpload");
            return uploaded.is_number() ? uploaded.get<int32_t>() : 0;  // absent, nothing was uploaded yet
        }
    }
    return std::nullopt;
}

std::optional<int64_t> FetchAlertsHeldBack(AgentConnection& agent) {
    const AgentAnswer status = FetchStatus(agent);
    const Json& held = MemberOf(StatusMember(status.content, "alerts"), "heldBack");
    return held.is_number() ? std::optional(held.get<int64_t>()) : std::nullopt;
}
