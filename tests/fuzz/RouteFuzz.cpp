#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzTarget.h"
#include "agent/request/RequestRouter.h"
#include "host/container/LumContainer.h"
#include "host/core/ActionDb.h"

namespace {

uint32_t Answer(LumContainer* container) {
    int32_t status = 0;
    static_cast<void>(container->GetInt32("Status", status));  // 0 where there is none
    return static_cast<uint32_t>(status);
}

/// Cuts `text` up to `end` off its front.
std::string_view Cut(std::string_view& text, char end) {
    const std::size_t at = text.find(end);
    const std::string_view front = text.substr(0, at);
    text = at == std::string_view::npos ? std::string_view() : text.substr(at + 1);
    return front;
}

}  // namespace

/// Any bytes as a request: a line with method and target, then the body. The answer is JSON with a status
/// that fits it, whatever was asked.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static LumAgentHandle handle{"Fuzz"};
    static const bool isRegistered = ActionDbRegisterAction("Answer (container Values)", Answer, &handle);
    static const std::vector<ModuleInfo> modules{{"Fuzz", "/Fuzz.so", "A module", "1.0"}};
    static LumDebug debug("Agent", "The agent process");
    static RequestRouter router(
        {modules, {}, [] { return std::vector<LumString>(); }, [] { return "{}"; }, [] { return "{}"; }},
        debug);
    static const Client client{true, 0, {0}};
    Require(isRegistered);
    std::string_view body = FuzzInput(data, size);
    std::string_view target = Cut(body, '\n');
    const std::string_view method = Cut(target, ' ');
    const HttpAnswer answer = router.Answer({method, target, body, client});
    Require(nlohmann::json::accept(answer.body));
    switch (answer.status) {
        case 200:
            Require(method == "GET" || answer.body.starts_with(R"({"status":)"));
            break;
        case 405:
            Require(!answer.allow.empty() && answer.allow != method);
            [[fallthrough]];
        case 400:
        case 404:
            Require(answer.body.starts_with(R"({"error":")"));
            break;
        default:
            Require(false);
    }
    return 0;
}
