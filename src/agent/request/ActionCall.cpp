#include "agent/request/ActionCall.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "host/core/ActionDb.h"
#include "host/log/LumLogCapture.h"

namespace {

/// Enough to tell what was asked for.
constexpr std::size_t kMaxArguments = 300;

std::string AsJson(const std::vector<LumString>& lines) {
    nlohmann::json messages = nlohmann::json::array();
    for (const LumString& line : lines) {
        messages.push_back(line.View());
    }
    return messages.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

void ActionResult::AppendTo(std::string& json) const {
    json.append(R"("status":)").append(std::to_string(status)).append(R"(,"container":)").append(container);
    if (messages.has_value()) {
        json.append(R"(,"messages":)").append(*messages);
    }
}

ActionCall::ActionCall(const LumString& name, const Client& client, LumDebug& debug)
    : name_(name),
      caller_{client.user, UserName(client.user)},
      isAudited_(IsAudited(name.View())),
      debug_(debug) {}

bool ActionCall::Run(std::string_view body, bool explain, ActionResult& result, LumString& error) {
    LumContainer container;
    if (!container.FromJson(body, error)) {
        return false;
    }
    std::optional<LumContainer> arguments;
    if (isAudited_) {
        arguments = container;
    }
    std::optional<LumLogCapture> capture;
    if (explain) {
        capture.emplace();
    }
    {
        const LumCallerScope scope(&caller_);
        if (!ActionDbCallAction(name_, container, result.status)) {
            return false;
        }
    }
    if (arguments.has_value()) {
        Audit(*arguments, result.status);
    }
    result.container = container.ToJson();
    if (capture.has_value()) {
        result.messages = AsJson(capture->GetLines());
    }
    return true;
}

void ActionCall::Audit(const LumContainer& arguments, uint32_t status) const {
    std::string text = arguments.ToJson();
    if (text.size() > kMaxArguments) {
        text = text.substr(0, kMaxArguments) + "...";
    }
    debug_.PrintWithNL("User %u (%S) called %S with %S: status %u", caller_.userId, caller_.userName, name_,
                       std::string_view(text), status);
}
