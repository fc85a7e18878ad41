#include "agent/AgentStatus.h"

#include <nlohmann/json.hpp>
#include <utility>

#include <unistd.h>

#include "agent/ProcessFigures.h"
#include "host/database/DatabaseFigures.h"

namespace {

using nlohmann::ordered_json;

void Show(const char* name, const char* help, double value, const LumMetricLabels& labels = {}) {
    LumMetricsGauge(name, help, labels).Set(value);
}

/// A counter that somebody else keeps, brought up to what that one says. One thread answers for /metrics at a
/// time.
void ShowTotal(const char* name, const char* help, uint64_t value) {
    LumCounter& counter = LumMetricsCounter(name, help);
    counter.Add(value - counter.Get());
}

void ShowDatabase() {
    const DBFigures figures = DBReadFigures();
    ShowTotal("lum_statements_total", "Statements that were run on databases.", figures.statements);
    ShowTotal("lum_statement_failures_total", "Statements that failed.", figures.failures);
    ShowTotal("lum_syncs_total", "Syncs of write-ahead logs that callers waited for.", figures.syncs);
    ShowTotal("lum_synced_changes_total", "Changes that became durable by those syncs.",
              figures.syncedChanges);
}

}  // namespace

const char* AgentVersion() {
    return LUM_VERSION;
}

AgentStatus::AgentStatus(const LumString& dataDirectory, std::vector<ModuleInfo> modules,
                         const AgentHealth& health)
    : dataDirectory_(dataDirectory),
      modules_(std::move(modules)),
      health_(health),
      refresh_([this] { RefreshMetrics(); }) {}

std::string AgentStatus::GetStatus() const {
    const ProcessFigures process = ReadProcessFigures();
    uint64_t freeBytes = 0;
    static_cast<void>(ReadFreeBytes(dataDirectory_, freeBytes));  // what is not known is 0
    ordered_json status = {{"version", AgentVersion()},       {"uptime", std::time(nullptr) - startTime_},
                           {"process", ::getpid()},           {"health", ordered_json::array()},
                           {"memory", process.residentBytes}, {"threads", process.threads},
                           {"freeBytes", freeBytes}};
    for (const LumString& reason : health_.GetReasons()) {
        status["health"].push_back(reason.View());
    }
    if (server_ != nullptr) {
        const ControlServerFigures figures = server_->GetFigures();
        status["clients"] = figures.connections;
        status["calls"] = {{"running", figures.running}, {"waiting", figures.waiting}};
    }
    ordered_json modules = ordered_json::array();
    for (const ModuleInfo& module : modules_) {
        modules.push_back({{"name", module.name.View()}, {"version", module.version.View()}});
    }
    status["modules"] = std::move(modules);
    LumContainer parts;
    LumStatusCollect(parts);
    status.update(ordered_json::parse(parts.ToJson()));
    return status.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

std::string AgentStatus::GetMetrics() {
    return std::string(LumMetricsText().View());
}

void AgentStatus::RefreshMetrics() const {
    const ProcessFigures process = ReadProcessFigures();
    Show("process_resident_memory_bytes", "Memory of the process that is in use.",
         static_cast<double>(process.residentBytes));
    Show("process_open_fds", "Open files of the process.", process.openFiles);
    Show("process_start_time_seconds", "When the process started, in seconds since 1970.",
         static_cast<double>(startTime_));
    Show("lum_threads", "Threads of the process.", process.threads);
    Show("lum_cpu_seconds", "Time of the processor that the process has used.", process.cpuSeconds);
    Show("lum_healthy", "1 where /health answers ok, else 0.", health_.GetReasons().empty() ? 1 : 0);
    Show("lum_build_info", "Always 1; the label is the version.", 1, {{"version", AgentVersion()}});
    uint64_t freeBytes = 0;
    if (ReadFreeBytes(dataDirectory_, freeBytes)) {
        Show("lum_data_free_bytes", "Free room below the data directory.", static_cast<double>(freeBytes));
    }
    for (const ModuleInfo& module : modules_) {
        Show("lum_module_info", "Always 1 for each module that is loaded.", 1,
             {{"module", module.name}, {"version", module.version}});
    }
    if (server_ != nullptr) {
        const ControlServerFigures figures = server_->GetFigures();
        Show("lum_clients", "Connections to the control socket.", static_cast<double>(figures.connections));
        Show("lum_client_held_bytes", "Memory held for clients beyond the first few bytes of each.",
             static_cast<double>(figures.heldBytes));
        Show("lum_calls_running", "Calls that hold a thread.", static_cast<double>(figures.running));
        Show("lum_calls_waiting", "Calls that wait for a thread.", static_cast<double>(figures.waiting));
    }
    ShowDatabase();
}
