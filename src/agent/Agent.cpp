#include "agent/Agent.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <optional>
#include <system_error>

#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/ControlServer.h"
#include "agent/ControlSocket.h"
#include "agent/InstanceLock.h"
#include "agent/ModuleHost.h"
#include "agent/ServiceManager.h"
#include "agent/Settings.h"
#include "host/core/LumAgent.h"
#include "host/file/LumFile.h"
#include "host/text/LumSystemError.h"

namespace {

constexpr int kStopped = 0;
constexpr int kNotStarted = 1;

/// The signals that end the agent. They are blocked in every thread, so that none is lost or kills the
/// process, and taken one by one where the agent is ready for them.
class StopSignals {
public:
    StopSignals() {
        sigemptyset(&set_);
        for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
            sigaddset(&set_, signal);
        }
        ::pthread_sigmask(SIG_BLOCK, &set_, nullptr);
    }

    [[nodiscard]] static bool IsPending() {
        sigset_t pending = {};
        sigemptyset(&pending);
        sigpending(&pending);
        return sigismember(&pending, SIGTERM) == 1 || sigismember(&pending, SIGINT) == 1 ||
               sigismember(&pending, SIGHUP) == 1;
    }

    /// Waits for one and returns its name.
    [[nodiscard]] const char* Wait() const {
        int signal = 0;
        while (::sigwait(&set_, &signal) != 0) {
        }
        return signal == SIGTERM ? "SIGTERM" : signal == SIGINT ? "SIGINT" : "SIGHUP";
    }

private:
    sigset_t set_ = {};
};

/// Lifts the limit of open files to what the system lets this process have, and returns it.
std::size_t RaiseDescriptorLimit() {
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return 0;
    }
    limit.rlim_cur = limit.rlim_max;
    // Where it is refused, the agent makes do with fewer connections.
    static_cast<void>(::setrlimit(RLIMIT_NOFILE, &limit));
    static_cast<void>(::getrlimit(RLIMIT_NOFILE, &limit));
    return limit.rlim_cur;
}

/// Keeps the process small after large requests: by default the allocator would raise both limits to the size
/// of the largest body, and from then on keep that much for every thread that has run an action.
void LimitUnusedMemory() {
    constexpr int bytes = 1 << 20;
    ::mallopt(M_MMAP_THRESHOLD, bytes);
    ::mallopt(M_TRIM_THRESHOLD, bytes);
}

class Agent {
public:
    Agent(const CommandLine& commandLine, const StopSignals& signals, std::size_t descriptorLimit)
        : commandLine_(commandLine), signals_(signals), descriptorLimit_(descriptorLimit) {}

    [[nodiscard]] int Run();

private:
    [[nodiscard]] bool Prepare(LumString& error);
    [[nodiscard]] bool OpenLog(LumString& error);
    [[nodiscard]] bool CheckSocket(LumString& error);
    void LoadModules();
    [[nodiscard]] bool Serve(LumString& error);

    const CommandLine& commandLine_;
    const StopSignals& signals_;
    const std::size_t descriptorLimit_;

    LumDebug debug_{"Agent", "The agent process"};
    LumString dataDirectory_;
    InstanceLock lock_;
    Settings settings_;
    std::optional<gid_t> socketGroup_;
    ModuleHost modules_{debug_};
};

int Agent::Run() {
    LumString error;
    if (!Prepare(error)) {
        debug_.ErrorWithNL("The agent does not start: %S", error);
        return kNotStarted;
    }
    LoadModules();
    const bool served = StopSignals::IsPending() || Serve(error);
    if (!served) {
        debug_.ErrorWithNL("The agent stops: %S", error);
    }
    NotifyServiceManager("STOPPING=1");
    modules_.UnloadAll();
    debug_.PrintWithNL("The agent has stopped");
    return served ? kStopped : kNotStarted;
}

bool Agent::Prepare(LumString& error) {
    dataDirectory_ = LumString(std::string_view(commandLine_.dataDirectory));
    if (!PathCreate(dataDirectory_)) {
        error.Printf("Cannot make the directory '%S': %S", dataDirectory_, LumSystemErrorText());
        return false;
    }
    dataDirectory_ += "/";
    if (!lock_.Take(dataDirectory_, error)) {
        return false;
    }
    const LumString configDirectory(std::string_view(commandLine_.configDirectory));
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
    if (!settings_.socketGroup.IsEmpty()) {
        socketGroup_ = FindGroup(settings_.socketGroup);
        if (!socketGroup_.has_value()) {
            error.Printf("There is no group '%S' for the control socket", settings_.socketGroup);
            return false;
        }
    }
    return ControlSocket::Check(settings_.socketPath, error);
}

void Agent::LoadModules() {
    const LumString directory(std::string_view(commandLine_.moduleDirectory));
    for (const auto& [name, file] : settings_.modules) {
        if (StopSignals::IsPending()) {
            return;
        }
        // A module that fails has said so; the others are loaded all the same.
        static_cast<void>(modules_.Load(name, file, directory));
    }
}

bool Agent::Serve(LumString& error) {
    const std::vector<ModuleInfo> modules = modules_.ListModules();
    ControlServerOptions options;
    options.threads = settings_.threads;
    options.clientTimeoutMs = settings_.clientTimeoutMs;
    // Half of the descriptors stay with the modules.
    options.maxConnections = std::clamp<std::size_t>(descriptorLimit_ / 2, 1, 4096);
    ControlServer server(
        options,
        [&modules](std::string_view method, std::string_view target, std::string_view body) {
            return RouteRequest(modules, method, target, body);
        },
        debug_);
    ControlSocket socket;
    if (!socket.Open(settings_.socketPath, socketGroup_, error)) {
        return false;
    }
    if (!server.Start(socket.ReleaseListener())) {
        error = "the control socket is not served";
        return false;
    }
    debug_.PrintWithNL("The control socket is open: %S", settings_.socketPath);
    NotifyServiceManager("READY=1");
    debug_.PrintWithNL("The agent stops on %s", signals_.Wait());
    socket.RemoveFile();
    server.Stop();
    return true;
}

}  // namespace

int RunAgent(const CommandLine& commandLine) {
    ::umask(077);
    LimitUnusedMemory();
    // A reader of standard error that goes away, or a client, must not take the agent with it.
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    const StopSignals signals;
    Agent agent(commandLine, signals, RaiseDescriptorLimit());
    return agent.Run();
}
