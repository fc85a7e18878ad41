#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "agent/module/ModuleHost.h"
#include "agent/request/AccessRules.h"
#include "agent/socket/ControlServer.h"
#include "host/log/LumDebug.h"
#include "host/text/LumString.h"

/// What the router answers with that others know. Each may be called from any thread.
struct RouterSources {
    std::vector<ModuleInfo> modules;
    AccessRules access;
    std::function<std::vector<LumString>()> health;  ///< the reasons that speak against it
    std::function<std::string()> status;             ///< as JSON
    std::function<std::string()> metrics;            ///< as Prometheus text
};

/// Answers the requests of the control socket by their path. Every operation may be called from several
/// threads at once.
class RequestRouter : public RequestHandler {
public:
    /// `debug` gets one line for each call that is audited, and must outlive the router.
    RequestRouter(RouterSources sources, LumDebug& debug) : sources_(std::move(sources)), debug_(debug) {}

    [[nodiscard]] RequestKind Classify(const ClientRequest& request) override;
    [[nodiscard]] HttpAnswer Answer(const ClientRequest& request) override;
    [[nodiscard]] std::unique_ptr<BatchStream> OpenBatch(const ClientRequest& request,
                                                         HttpAnswer& refusal) override;

private:
    struct Page;

    [[nodiscard]] HttpAnswer Route(const ClientRequest& request) const;
    [[nodiscard]] HttpAnswer RouteAction(const ClientRequest& request, const std::string& path) const;
    [[nodiscard]] HttpAnswer CallAction(const ClientRequest& request, const LumString& name) const;
    [[nodiscard]] bool IsOpenFor(const ClientRequest& request, const LumString& name,
                                 HttpAnswer& refusal) const;
    [[nodiscard]] HttpAnswer AnswerHealth() const;
    [[nodiscard]] HttpAnswer AnswerStatus() const;
    [[nodiscard]] HttpAnswer AnswerMetrics() const;
    [[nodiscard]] HttpAnswer AnswerModules() const;
    [[nodiscard]] HttpAnswer AnswerActions() const;

    static const Page kPages[];

    const RouterSources sources_;
    LumDebug& debug_;
};
