#include "client/connection/AgentCall.h"

#include <utility>

#include "client/ClientError.h"
#include "client/connection/Answer.h"
#include "contract/Statuses.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr unsigned kHttpOk = 200;

std::string MeaningOf(uint32_t status) {
    switch (status) {
        case kActionFailed:
            return "1 (it failed)";
        case kActionRefused:
            return "13 (refused: the model is unknown, or a value is missing)";
        case kActionWithinGap:
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
    answer.httpStatus = reply.status;
    if (reply.status == kHttpOk) {
        return answer;
    }
    const std::string reason = TextOf(MemberOf(Json::parse(answer.body, nullptr, false), "error"));
    return Failed(std::move(answer), reason.empty()
                                         ? "the agent answers HTTP status " + std::to_string(reply.status)
                                         : "the agent answers: " + reason);
}

AgentAnswer WithContent(AgentAnswer answer) {
    answer.content = Json::parse(answer.body, nullptr, false);
    if (answer.content.is_discarded()) {
        return Failed(std::move(answer), "the agent's answer is not JSON");
    }
    return answer;
}

/// A message is a text, or an object that holds it as "text".
void TakeMessages(const Json& list, std::vector<std::string>& messages) {
    if (!list.is_array()) {
        return;
    }
    for (const Json& entry : list) {
        messages.push_back(entry.is_string() ? entry.get<std::string>() : TextOf(MemberOf(entry, "text")));
    }
}

std::string TargetOf(std::string_view action, bool explain) {
    return "/actions/" + PercentEncoded(action) + (explain ? "?explain=1" : "");
}

}  // namespace

AgentAnswer Required(AgentAnswer answer) {
    if (answer.IsDone()) {
        return answer;
    }
    std::vector<std::string> details;
    for (const std::string& message : answer.messages) {
        details.push_back("agent: " + message);
    }
    if (answer.status != kActionDone && details.empty()) {
        details.emplace_back("the agent's log says why");
    }
    throw ClientError(answer.error, answer.exit, std::move(details));
}

AgentAnswer CallAction(AgentConnection& agent, std::string_view action, const Json& arguments) {
    return ReadActionAnswer(action, CallActionUnread(agent, action, arguments));
}

bool BeginAction(AgentConnection& agent, std::string_view action, const Json& arguments, std::string& error) {
    return agent.Send(TargetOf(action, true), arguments.dump(), error);
}

AgentAnswer EndAction(AgentConnection& agent) {
    AgentConnection::Reply reply;
    std::string error;
    if (agent.Receive(reply, error)) {
        return FromReply(std::move(reply));
    }
    AgentAnswer answer = NoAgent(std::move(error));
    answer.body = std::move(reply.body);
    return answer;
}

AgentAnswer CallActionUnread(AgentConnection& agent, std::string_view action, const Json& arguments) {
    std::string error;
    return BeginAction(agent, action, arguments, error) ? EndAction(agent) : NoAgent(std::move(error));
}

AgentAnswer ReadActionAnswer(std::string_view action, AgentAnswer answer) {
    if (answer.IsDone()) {
        answer = WithContent(std::move(answer));
    }
    if (!answer.IsDone()) {
        return answer;
    }
    TakeMessages(MemberOf(answer.content, "messages"), answer.messages);
    const Json& status = MemberOf(answer.content, "status");
    if (!status.is_number_unsigned()) {
        return Failed(std::move(answer), "the agent's answer holds no status");
    }
    answer.status = status.get<uint32_t>();
    answer.content = Json(MemberOf(answer.content, "container"));
    if (answer.status != kActionDone) {
        const std::string meaning = MeaningOf(answer.status);
        return Failed(std::move(answer), "the action " + std::string(action) + " answers status " + meaning);
    }
    return answer;
}

bool BeginBatch(AgentConnection& agent, std::string_view action, std::string lines, std::string& error) {
    return agent.Send("/batch/" + PercentEncoded(action) + "?explain=1", std::move(lines), error);
}

AgentAnswer ReadBatchAnswer(std::string_view action, std::string_view line, uint64_t& number) {
    AgentAnswer answer;
    answer.body = line;
    const Json content = Json::parse(line, nullptr, false);
    const Json& counted = MemberOf(content, "line");
    number = counted.is_number_unsigned() ? counted.get<uint64_t>() : 0;
    const std::string reason = TextOf(MemberOf(content, "error"));
    return reason.empty() ? ReadActionAnswer(action, std::move(answer))
                          : Failed(std::move(answer), "the agent answers: " + reason);
}

AgentAnswer CallActionWithText(AgentConnection& agent, std::string_view action, std::string arguments) {
    std::string error;
    return agent.Send(TargetOf(action, false), std::move(arguments), error)
               ? ReadActionAnswer(action, EndAction(agent))
               : NoAgent(std::move(error));
}

AgentAnswer AskFor(AgentConnection& agent, std::string_view target) {
    AgentConnection::Reply reply;
    std::string error;
    if (!agent.Get(target, reply, error)) {
        return NoAgent(std::move(error));
    }
    AgentAnswer answer = FromReply(std::move(reply));
    return answer.IsDone() ? WithContent(std::move(answer)) : answer;
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
