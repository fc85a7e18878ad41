#include "agent/RequestRouter.h"

#include <cstdint>
#include <exception>
#include <nlohmann/json.hpp>
#include <optional>

#include "host/container/LumContainer.h"
#include "host/core/ActionDb.h"

namespace {

using nlohmann::ordered_json;

constexpr std::string_view kActionsPath = "/actions";
constexpr std::string_view kActionPrefix = "/actions/";

std::string Dump(const ordered_json& json) {
    return json.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

int HexDigit(char character) {
    if (character >= '0' && character <= '9') {
        return character - '0';
    }
    const char lower = static_cast<char>(character | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// Takes percent-encoding (RFC 3986, section 2.1) off; nothing where it is broken.
std::optional<std::string> PercentDecode(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        const int high = i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return decoded;
}

/// The path of a request target: without scheme and host, which a proxy's request carries, and without query.
std::string_view PathOf(std::string_view target) {
    constexpr std::string_view scheme = "http://";
    if (target.starts_with(scheme)) {
        target.remove_prefix(scheme.size());
        const std::size_t slash = target.find('/');
        target = slash == std::string_view::npos ? "/" : target.substr(slash);
    }
    return target.substr(0, target.find('?'));
}

HttpAnswer MethodNotAllowed(std::string_view method, std::string_view allow) {
    HttpAnswer answer = MakeErrorAnswer(
        405, "The method " + std::string(method) + " is not allowed here, only " + std::string(allow) + ".");
    answer.allow = allow;
    return answer;
}

std::string ModulesAsJson(const std::vector<ModuleInfo>& modules) {
    ordered_json list = ordered_json::array();
    for (const ModuleInfo& module : modules) {
        list.push_back({{"name", module.name.View()},
                        {"file", module.file.View()},
                        {"description", module.description.View()},
                        {"version", module.version.View()}});
    }
    return Dump(list);
}

std::string ActionsAsJson() {
    ordered_json list = ordered_json::array();
    for (const ActionInfo& action : ActionDbListActions()) {
        list.push_back({{"name", action.name.View()},
                        {"signature", action.signature.View()},
                        {"module", action.module.View()}});
    }
    return Dump(list);
}

HttpAnswer CallAction(const LumString& name, std::string_view body) {
    LumContainer container;
    LumString error;
    if (!container.FromJson(body, error)) {
        return MakeErrorAnswer(400, "The body is not a container: " + std::string(error.View()) + ".");
    }
    uint32_t status = 0;
    if (!ActionDbCallAction(name, container, status)) {
        return MakeErrorAnswer(404, "There is no action '" + std::string(name.View()) + "'.");
    }
    return {
        200, R"({"status":)" + std::to_string(status) + R"(,"container":)" + container.ToJson() + "}", {}};
}

HttpAnswer RouteAction(std::string_view method, const LumString& name, std::string_view body) {
    if (!ActionDbIsActionRegistered(name)) {
        return MakeErrorAnswer(404, "There is no action '" + std::string(name.View()) + "'.");
    }
    return method == "POST" ? CallAction(name, body) : MethodNotAllowed(method, "POST");
}

HttpAnswer Route(const std::vector<ModuleInfo>& modules, std::string_view method, std::string_view target,
                 std::string_view body) {
    if (method != "GET" && method != "POST") {
        return MethodNotAllowed(method, "GET, POST");
    }
    const std::optional<std::string> path = PercentDecode(PathOf(target));
    if (!path.has_value()) {
        return MakeErrorAnswer(400, "The path is not properly percent-encoded.");
    }
    if (path->starts_with(kActionPrefix)) {
        return RouteAction(method, LumString(std::string_view(*path).substr(kActionPrefix.size())), body);
    }
    const bool isHealth = *path == "/health";
    const bool isModules = *path == "/modules";
    if (!isHealth && !isModules && *path != kActionsPath) {
        return MakeErrorAnswer(404, "There is no path '" + *path + "'.");
    }
    if (method != "GET") {
        return MethodNotAllowed(method, "GET");
    }
    return {200, isHealth ? R"({"status":"ok"})" : isModules ? ModulesAsJson(modules) : ActionsAsJson(), {}};
}

}  // namespace

HttpAnswer MakeErrorAnswer(unsigned status, std::string_view sentence) {
    return {status, Dump({{"error", sentence}}), {}};
}

HttpAnswer RouteRequest(const std::vector<ModuleInfo>& modules, std::string_view method,
                        std::string_view target, std::string_view body) {
    try {
        return Route(modules, method, target, body);
    } catch (const std::exception& error) {
        // Memory that runs out on one answer must not take the agent with it.
        return MakeErrorAnswer(500, std::string("The request failed: ") + error.what() + ".");
    }
}

bool IsActionRequest(std::string_view method) {
    return method == "POST";
}
