#include "agent/Agent.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <optional>

#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/AgentHealth.h"
#include "agent/AgentSignals.h"
#include "agent/AgentStatus.h"
#include "agent/InstanceLock.h"
#include "agent/ServiceManager.h"
#include "agent/ServiceUser.h"
#include "agent/Settings.h"
#include "agent/StartupReporter.h"
#include "agent/module/FileTrust.h"
#include "agent/module/ModuleHost.h"
#include "agent/request/AccessRules.h"
#include "agent/request/RequestRouter.h"
#include "agent/socket/ControlServer.h"
#include "agent/socket/ControlSocket.h"
#include "agent/socket/MetricsListener.h"
#include "contract/Actions.h"
#include "host/core/ActionDb.h"
#include "host/core/LumAgent.h"
#include "host/file/LumFile.h"
#include "host/text/LumSystemError.h"

namespace {

constexpr int kStopped = 0;
constexpr int kNotStarted = 1;

/// How often the main thread looks whether requests are still being worked on.
constexpr std::chrono::milliseconds kLookAround(5000);

/// Lifts the limit of open files to what the system lets this process have, and returns it.
std::size_t RaiseDescriptorLimit() {
    rlimit limit = {};
    static_cast<void>(::getrlimit(RLIMIT_NOFILE, &limit));  // cannot fail
    limit.rlim_cur = limit.rlim_max;
    // If the system refuses, the agent serves fewer connections.
    static_cast<void>(::setrlimit(RLIMIT_NOFILE, &limit));
    static_cast<void>(::getrlimit(RLIMIT_NOFILE, &limit));
    return limit.rlim_cur;
}

/// Keeps the process small after large requests. By default the allocator would raise both limits to the size
/// of the largest body, from then on keep that much in each heap, and have up to eight heaps a processor, so
/// that each thread that answers once with a large page keeps a part of it. Actions wait for one database:
/// two heaps are enough for them.
void LimitUnusedMemory() {
    constexpr int bytes = 1 << 20;
    ::mallopt(M_MMAP_THRESHOLD, bytes);
    ::mallopt(M_TRIM_THRESHOLD, bytes);
    ::mallopt(M_ARENA_MAX, 2);
}

/// The group of that name, none for an empty one; false, with the reason, where there is no such group.
bool FindNamedGroup(const LumString& name, std::optional<gid_t>& group, LumString& error) {
    if (name.IsEmpty()) {
        return true;
    }
    group = FindGroup(name);
    if (!group.has_value()) {
        error.Printf("There is no group '%S' for the control socket", name);
    }
    return group.has_value();
}

class Agent {
public:
    Agent(const CommandLine& commandLine, const AgentSignals& signals, std::size_t descriptorLimit)
        : commandLine_(commandLine), signals_(signals), descriptorLimit_(descriptorLimit) {}

    [[nodiscard]] int Run();

private:
    [[nodiscard]] bool Prepare(LumString& error);
    [[nodiscard]] bool OpenLog(LumString& error);
    [[nodiscard]] bool CheckSocket(LumString& error);
    void LoadModules();
    [[nodiscard]] bool Serve(LumString& error);
    [[nodiscard]] ControlServerOptions GetServerOptions() const;
    [[nodiscard]] SocketGroups GetSocketGroups() const;
    void ListenForMetrics(ControlServer& server);
    [[nodiscard]] int WaitForStop(ControlServer& server);
    void OnHangUp(ControlServer& server);
    void FeedWatchdog(ControlServer& server);

    const CommandLine& commandLine_;
    const AgentSignals& signals_;
    const std::size_t descriptorLimit_;

    LumDebug debug_{"Agent", "The agent process"};
    LumString dataDirectory_;
    InstanceLock lock_;
    Settings settings_;
    AccessRules access_;
    ModuleHost modules_{debug_};
    bool isStuck_ = false;
};

int Agent::Run() {
    LumString error;
    if (!Prepare(error)) {
        debug_.ErrorWithNL("The agent does not start: %S", error);
        return kNotStarted;
    }
    LoadModules();
    const bool served = AgentSignals::IsStopAsked() || Serve(error);
    if (!served) {
        debug_.ErrorWithNL("The agent stops: %S", error);
    }
    NotifyServiceManager("STOPPING=1");
    modules_.UnloadAll();
    debug_.PrintWithNL("The agent has stopped");
    return served ? kStopped : kNotStarted;
}

bool Agent::Prepare(LumString& error) {
    if (!BecomeOwnerOfConfiguration(commandLine_, error)) {
        return false;
    }
    dataDirectory_ = LumString(std::string_view(commandLine_.dataDirectory));
    const LumString configDirectory(std::string_view(commandLine_.configDirectory));
    for (const LumString& directory : {dataDirectory_, configDirectory}) {
        if (!PathCreate(directory)) {
            error.Printf("Cannot make the directory '%S': %S", directory, LumSystemErrorText());
            return false;
        }
    }
    if (!IsTrustworthy(dataDirectory_, error) || !IsTrustworthyConfiguration(configDirectory, error)) {
        return false;
    }
    dataDirectory_ += "/";
    if (!lock_.Take(dataDirectory_, error)) {
        return false;
    }
    settings_ = ReadSettings(IniFile(configDirectory + "/agent.ini"), commandLine_, dataDirectory_);
    if (!OpenLog(error)) {
        return false;
    }
    const LumAgentOptions options{configDirectory, LumString(std::string_view(commandLine_.dataDirectory))};
    return LumAgentSetUp(options, error) && CheckSocket(error);
}

bool Agent::OpenLog(LumString& error) {
    const LumString directory = dataDirectory_ + "log";
    const LumString path = directory + "/agent.log";
    if (!PathCreate(directory)) {
        error.Printf("Cannot make the directory '%S': %S", directory, LumSystemErrorText());
        return false;
    }
    LumDebugContext& context = *LumAgentGetDebugContext(nullptr);
    LumString reason;
    if (!IsTrustworthy(directory, error)) {
        return false;
    }
    if (!context.OpenFile(path, settings_.logMaxBytes, settings_.logMaxFiles, reason)) {
        error.Printf("Cannot open the log %S: %S", path, reason);
        return false;
    }
    context.SetLevel(settings_.logLevel);
    debug_.SetContext(&context);
    debug_.PrintWithNL("The agent starts as process %d", ::getpid());
    for (const LumString& warning : settings_.warnings) {
        debug_.WarningWithNL("%S", warning);
    }
    return true;
}

/// What would keep the socket from opening is said before the modules begin their work.
bool Agent::CheckSocket(LumString& error) {
    return FindNamedGroup(settings_.socketGroup, access_.administer, error) &&
           FindNamedGroup(settings_.readGroup, access_.read, error) &&
           FindNamedGroup(settings_.createGroup, access_.create, error) &&
           ControlSocket::Check(settings_.socketPath, error);
}

SocketGroups Agent::GetSocketGroups() const {
    SocketGroups groups;
    groups.group = access_.administer;
    for (const std::optional<gid_t>& further : {access_.read, access_.create}) {
        if (further.has_value() && further != access_.administer) {
            groups.further.push_back(*further);
        }
    }
    return groups;
}

void Agent::LoadModules() {
    ReportStartupTo(debug_);
    const LumString directory(std::string_view(commandLine_.moduleDirectory));
    for (const auto& [name, file] : settings_.modules) {
        if (AgentSignals::IsStopAsked()) {
            return;
        }
        // A module that fails has said so; the others are loaded all the same.
        static_cast<void>(modules_.Load(name, file, directory));
    }
}

ControlServerOptions Agent::GetServerOptions() const {
    ControlServerOptions options;
    options.threads = settings_.threads;
    options.clientTimeoutMs = settings_.clientTimeoutMs;
    // Half of the descriptors stay with the modules.
    options.maxConnections = std::clamp<std::size_t>(descriptorLimit_ / 2, 1, 4096);
    return options;
}

bool Agent::Serve(LumString& error) {
    const AgentHealth health(dataDirectory_, settings_.minFreeMb, modules_.GetFailures());
    AgentStatus status(dataDirectory_, modules_.ListModules(), health);
    RequestRouter router({modules_.ListModules(), access_, [&health] { return health.GetReasons(); },
                          [&status] { return status.GetStatus(); }, AgentStatus::GetMetrics},
                         debug_);
    ControlServer server(GetServerOptions(), router, debug_);
    status.SetServer(server);
    ListenForMetrics(server);
    ControlSocket socket;
    if (!socket.Open(settings_.socketPath, GetSocketGroups(), error)) {
        return false;
    }
    if (!server.Start(socket.ReleaseListener())) {
        error = "the control socket is not served";
        return false;
    }
    debug_.PrintWithNL("The control socket is open: %S", settings_.socketPath);
    NotifyServiceManager("READY=1");
    debug_.PrintWithNL("The agent stops on %s", AgentSignals::NameOf(WaitForStop(server)));
    NotifyServiceManager("STOPPING=1");
    socket.RemoveFile();
    server.Stop();
    return true;
}

/// A failure is one error line: the agent works without this listener.
void Agent::ListenForMetrics(ControlServer& server) {
    if (settings_.metricsListen.IsEmpty()) {
        return;
    }
    LumString error;
    FileDescriptor listener = OpenMetricsListener(settings_.metricsListen, error);
    if (!listener.IsOpen()) {
        debug_.ErrorWithNL("%S", error);
        return;
    }
    server.AddNetworkListener(std::move(listener));
    debug_.PrintWithNL("Metrics are served at %S", settings_.metricsListen);
}

int Agent::WaitForStop(ControlServer& server) {
    const std::chrono::milliseconds period = std::min(WatchdogPeriod().value_or(kLookAround), kLookAround);
    for (;;) {
        const int signal = signals_.Wait(period);
        if (signal == SIGHUP) {
            OnHangUp(server);
        } else if (signal != 0) {
            return signal;
        }
        FeedWatchdog(server);
    }
}

void Agent::OnHangUp(ControlServer& server) {
    LumString error;
    if (!LumAgentGetDebugContext(nullptr)->ReopenFile(error)) {
        debug_.ErrorWithNL("The log cannot be opened anew: %S", error);
    }
    debug_.PrintWithNL("SIGHUP: the log is opened anew, dropped definitions are taken in");
    server.RunInPool([] {
        if (ActionDbIsActionRegistered(actions::kReloadModels)) {
            ActionDbInvokeContainer(nullptr, LumString(), actions::kReloadModels, LumContainer(), nullptr,
                                    0xFFFFFFFF, 0xFFFFFFFF, false);
        }
    });
}

/// While requests are stuck, the watchdog is not fed: the service manager then ends the agent and starts it
/// again.
void Agent::FeedWatchdog(ControlServer& server) {
    const std::chrono::milliseconds stuck = server.GetStuckTime();
    if (stuck < std::chrono::seconds(settings_.stuckSeconds)) {
        isStuck_ = false;
        NotifyServiceManager("WATCHDOG=1");
    } else if (!isStuck_) {
        isStuck_ = true;
        debug_.ErrorWithNL("The agent hangs: calls have waited %d s and none has ended",
                           static_cast<int32_t>(stuck.count() / 1000));
    }
}

}  // namespace

int RunAgent(const CommandLine& commandLine) {
    ::umask(077);
    LimitUnusedMemory();
    const AgentSignals signals;
    Agent agent(commandLine, signals, RaiseDescriptorLimit());
    return agent.Run();
}
