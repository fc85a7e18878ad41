#include "agent/request/RequestRouter.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>

#include "agent/request/ActionCall.h"
#include "agent/request/BatchCall.h"
#include "agent/request/RequestTarget.h"
#include "host/core/ActionDb.h"

namespace {

using nlohmann::ordered_json;

constexpr std::string_view kActionPrefix = "/actions/";
constexpr std::string_view kBatchPrefix = "/batch/";

std::string Dump(const ordered_json& json) {
    return json.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

HttpAnswer MethodNotAllowed(std::string_view method, std::string_view allow) {
    HttpAnswer answer = MakeErrorAnswer(
        405, "The method " + std::string(method) + " is not allowed here, only " + std::string(allow) + ".");
    answer.allow = allow;
    return answer;
}

HttpAnswer NoSuchAction(const LumString& name) {
    return MakeErrorAnswer(404, "There is no action '" + std::string(name.View()) + "'.");
}

LumString NameAfter(const std::string& path, std::string_view prefix) {
    return LumString(std::string_view(path).substr(prefix.size()));
}

}  // namespace

HttpAnswer MakeErrorAnswer(unsigned status, std::string_view sentence) {
    // Not from a JSON object: to destroy one takes memory, and without any it ends the process.
    return {status, R"({"error":)" + Dump(ordered_json(sentence)) + "}", {}};
}

/// A path that is asked with GET.
struct RequestRouter::Page {
    std::string_view path;
    RequestKind kind;
    AccessNeed need;
    bool isOnNetwork;
    HttpAnswer (RequestRouter::*answer)() const;
};

const RequestRouter::Page RequestRouter::kPages[] = {
    {"/health", RequestKind::kObserving, AccessNeed::kLook, true, &RequestRouter::AnswerHealth},
    {"/status", RequestKind::kObserving, AccessNeed::kRead, false, &RequestRouter::AnswerStatus},
    {"/metrics", RequestKind::kObserving, AccessNeed::kRead, true, &RequestRouter::AnswerMetrics},
    {"/modules", RequestKind::kImmediate, AccessNeed::kLook, false, &RequestRouter::AnswerModules},
    {"/actions", RequestKind::kImmediate, AccessNeed::kLook, false, &RequestRouter::AnswerActions},
};

RequestKind RequestRouter::Classify(const ClientRequest& request) {
    const std::optional<std::string> path = PathOfTarget(request.target);
    if (request.method == "POST") {
        return path.has_value() && path->starts_with(kBatchPrefix) ? RequestKind::kBatch
                                                                   : RequestKind::kAction;
    }
    const auto* const page = std::find_if(std::begin(kPages), std::end(kPages),
                                          [&path](const Page& entry) { return entry.path == path; });
    return page == std::end(kPages) ? RequestKind::kImmediate : page->kind;
}

HttpAnswer RequestRouter::Answer(const ClientRequest& request) {
    try {
        return Route(request);
    } catch (const std::exception& error) {
        // Memory that runs out on one answer must not take the agent with it.
        return MakeErrorAnswer(500, std::string("The request failed: ") + error.what() + ".");
    }
}

HttpAnswer RequestRouter::Route(const ClientRequest& request) const {
    if (request.method != "GET" && request.method != "POST") {
        return MethodNotAllowed(request.method, "GET, POST");
    }
    const std::optional<std::string> path = PathOfTarget(request.target);
    if (!path.has_value()) {
        return MakeErrorAnswer(400, "The path is not properly percent-encoded.");
    }
    if (path->starts_with(kActionPrefix) || path->starts_with(kBatchPrefix)) {
        return RouteAction(request, *path);
    }
    const auto* const page = std::find_if(std::begin(kPages), std::end(kPages),
                                          [&path](const Page& entry) { return entry.path == *path; });
    if (page == std::end(kPages)) {
        return MakeErrorAnswer(404, "There is no path '" + *path + "'.");
    }
    if (request.method != "GET") {
        return MethodNotAllowed(request.method, "GET");
    }
    if (request.client.isLocal || !page->isOnNetwork) {
        const LumString refusal = sources_.access.Refuse(request.client, page->need);
        if (!refusal.IsEmpty()) {
            return MakeErrorAnswer(403, refusal.View());
        }
    }
    return (this->*page->answer)();
}

HttpAnswer RequestRouter::RouteAction(const ClientRequest& request, const std::string& path) const {
    // A batch that is asked with POST has gone another way.
    const bool isBatch = path.starts_with(kBatchPrefix);
    const LumString name = NameAfter(path, isBatch ? kBatchPrefix : kActionPrefix);
    HttpAnswer refusal;
    if (!IsOpenFor(request, name, refusal)) {
        return refusal;
    }
    return isBatch ? MakeErrorAnswer(400, "A batch is sent as a stream.") : CallAction(request, name);
}

bool RequestRouter::IsOpenFor(const ClientRequest& request, const LumString& name,
                              HttpAnswer& refusal) const {
    if (!ActionDbIsActionRegistered(name)) {
        refusal = NoSuchAction(name);
        return false;
    }
    if (request.method != "POST") {
        refusal = MethodNotAllowed(request.method, "POST");
        return false;
    }
    const LumString sentence = sources_.access.Refuse(request.client, AccessNeedOf(name.View()));
    if (!sentence.IsEmpty()) {
        refusal = MakeErrorAnswer(403, sentence.View());
        return false;
    }
    return true;
}

HttpAnswer RequestRouter::CallAction(const ClientRequest& request, const LumString& name) const {
    ActionCall call(name, request.client, debug_);
    ActionResult result;
    LumString error;
    if (call.Run(request.body, IsAskedFor(request.target, "explain"), result, error)) {
        HttpAnswer answer;
        answer.body = "{";
        result.AppendTo(answer.body);
        answer.body += '}';
        return answer;
    }
    return error.IsEmpty()
               ? NoSuchAction(name)
               : MakeErrorAnswer(400, "The body is not a container: " + std::string(error.View()) + ".");
}

std::unique_ptr<BatchStream> RequestRouter::OpenBatch(const ClientRequest& request, HttpAnswer& refusal) {
    const std::string path = PathOfTarget(request.target).value_or(std::string(kBatchPrefix));
    const LumString name = NameAfter(path, kBatchPrefix);
    if (!IsOpenFor(request, name, refusal)) {
        return nullptr;
    }
    return std::make_unique<BatchCall>(std::make_unique<ActionCall>(name, request.client, debug_),
                                       IsAskedFor(request.target, "explain"));
}

HttpAnswer RequestRouter::AnswerHealth() const {
    const std::vector<LumString> reasons = sources_.health();
    if (reasons.empty()) {
        return {200, R"({"status":"ok"})", {}};
    }
    ordered_json body = {{"status", "degraded"}, {"reasons", ordered_json::array()}};
    for (const LumString& reason : reasons) {
        body["reasons"].push_back(reason.View());
    }
    return {503, Dump(body), {}};
}

HttpAnswer RequestRouter::AnswerStatus() const {
    return {200, sources_.status(), {}};
}

HttpAnswer RequestRouter::AnswerMetrics() const {
    return {200, sources_.metrics(), {}, "text/plain; version=0.0.4; charset=utf-8"};
}

HttpAnswer RequestRouter::AnswerModules() const {
    ordered_json list = ordered_json::array();
    for (const ModuleInfo& module : sources_.modules) {
        list.push_back({{"name", module.name.View()},
                        {"file", module.file.View()},
                        {"description", module.description.View()},
                        {"version", module.version.View()}});
    }
    return {200, Dump(list), {}};
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): a page is answered by a member.
HttpAnswer RequestRouter::AnswerActions() const {
    ordered_json list = ordered_json::array();
    for (const ActionInfo& action : ActionDbListActions()) {
        list.push_back({{"name", action.name.View()},
                        {"signature", action.signature.View()},
                        {"module", action.module.View()}});
    }
    return {200, Dump(list), {}};
}
