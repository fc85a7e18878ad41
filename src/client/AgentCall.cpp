#include "client/AgentCall.h"

#include <utility>

#include "client/Answer.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr unsigned kHttpOk = 200;

std::string MeaningOf(uint32_t status) {
    switch (status) {
        case 1:
            return "1 (it failed; the agent's log says why)";
        case 13:
            return "13 (refused: the model is unknown, or a value is missing)";
        case 45001:
            return "45001 (the same alert was let through within the minimum gap)";
        default:
            return std::to_string(status);
    }
}

AgentAnswer NoAgent(std::string error) {
    AgentAnswer answer;
    answer.exit = ExitStatus::kNoAgent;
    answer.error = std::move(error);
    return answer;
}

AgentAnswer Failed(AgentAnswer answer, std::string error) {
    answer.exit = ExitStatus::kFailed;
    answer.error = std::move(error);
    return answer;
}

AgentAnswer FromReply(AgentConnection::Reply reply) {
    AgentAnswer answer;
    answer.body = std::move(reply.body);
    answer.content = Json::parse(answer.body, nullptr, false);
    if (reply.status != kHttpOk) {
        const std::string reason = TextOf(MemberOf(answer.content, "error"));
        return Failed(std::move(answer), reason.empty()
                                             ? "the agent answers HTTP status " + std::to_string(reply.status)
                                             : "the agent answers: " + reason);
    }
    if (answer.content.is_discarded()) {
        return Failed(std::move(answer), "the agent's answer is no JSON");
    }
    return answer;
}

}  // namespace

AgentAnswer CallAction(AgentConnection& agent, std::string_view action, const Json& arguments) {
    return CallActionWithText(agent, action, arguments.dump());
}

AgentAnswer CallActionWithText(AgentConnection& agent, std::string_view action, std::string arguments) {
    AgentConnection::Reply reply;
    std::string error;
    if (!agent.Post("/actions/" + PercentEncoded(action), std::move(arguments), reply, error)) {
        return NoAgent(std::move(error));
    }
    AgentAnswer answer = FromReply(std::move(reply));
    if (!answer.IsDone()) {
        return answer;
    }
    const Json& status = MemberOf(answer.content, "status");
    if (!status.is_number_unsigned()) {
        return Failed(std::move(answer), "the agent's answer holds no status");
    }
    answer.status = status.get<uint32_t>();
    answer.content = Json(MemberOf(answer.content, "container"));
    if (answer.status != 0) {
        const std::string meaning = MeaningOf(answer.status);
        return Failed(std::move(answer), "the action " + std::string(action) + " answers status " + meaning);
    }
    return answer;
}

AgentAnswer AskFor(AgentConnection& agent, std::string_view target) {
    AgentConnection::Reply reply;
    std::string error;
    if (!agent.Get(target, reply, error)) {
        return NoAgent(std::move(error));
    }
    return FromReply(std::move(reply));
}

std::string PercentEncoded(std::string_view name) {
    static constexpr std::string_view kHexDigits = "0123456789ABCDEF";
    std::string out;
    for (const char letter : name) {
        const bool plain = (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
                           (letter >= '0' && letter <= '9') || letter == '-' || letter == '.' ||
                           letter == '_' || letter == '~';
        if (plain) {
            out += letter;
            continue;
        }
        const auto byte = static_cast<unsigned char>(letter);
        out += '%';
        out += kHexDigits[byte >> 4U];
        out += kHexDigits[byte & 15U];
    }
    return out;
}
