#pragma once

#include <cstddef>
#include <ctime>
#include <string>
#include <vector>

#include "agent/AgentHealth.h"
#include "agent/module/ModuleHost.h"
#include "agent/socket/ControlServer.h"
#include "host/core/LumMetrics.h"
#include "host/text/LumString.h"

/// What /status and /metrics show of the agent itself. May be asked from any thread.
class AgentStatus {
public:
    /// `health` outlives the object.
    AgentStatus(const LumString& dataDirectory, std::vector<ModuleInfo> modules, const AgentHealth& health);

    /// From now on the figures of `server` are shown too, which outlives the object. To be called before
    /// anybody asks.
    void SetServer(ControlServer& server) { server_ = &server; }

    /// One JSON object: the agent's own members, then those of the modules (LumMetrics.h).
    [[nodiscard]] std::string GetStatus() const;
    /// Prometheus text.
    [[nodiscard]] static std::string GetMetrics();

private:
    void RefreshMetrics() const;

    const LumString dataDirectory_;
    const std::vector<ModuleInfo> modules_;
    const AgentHealth& health_;
    const std::time_t startTime_ = std::time(nullptr);
    ControlServer* server_ = nullptr;
    const LumMetricsRefresh refresh_;
};

/// The release that this agent belongs to: "11.5.0".
[[nodiscard]] const char* AgentVersion();
