#include "support/FleetServers.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/AgentProcess.h"
#include "support/TempDirectory.h"
#include "support/WaitFor.h"

namespace fs = std::filesystem;

namespace {

constexpr uid_t kNobody = 65534;
constexpr char kPostgresDirectory[] = "/usr/lib/postgresql/15/bin";

std::string Quoted(const std::string& text) {
    return "'" + text + "'";
}

/// Makes `path` and lets the database's user in, who is not the test's where that is root.
void MakeForNobody(const std::string& path) {
    fs::create_directories(path);
    if (::geteuid() == 0 && ::chown(path.c_str(), kNobody, kNobody) != 0) {
        return;  // the server says so when it starts
    }
    ::chmod(path.c_str(), 0700);
}

/// Lets others pass through the directories above `path`, up to the system's temporary directory.
void OpenTheWayTo(const fs::path& path) {
    for (fs::path part = path.parent_path(); part != fs::temp_directory_path() && part.has_relative_path();
         part = part.parent_path()) {
        ::chmod(part.c_str(), 0755);
    }
}

/// A new database cluster, made once for all tests of a build: copying one is faster than making one.
std::string TemplateDirectory() {
    const fs::path base =
        fs::temp_directory_path() / ("lum-test-database-" + std::to_string(::geteuid()) + "-" +
                                     std::to_string(std::hash<std::string>()(BinaryDirectory())));
    fs::create_directories(base);
    ::chmod(base.c_str(), 0755);
    const int lock = ::open((base / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ::flock(lock, LOCK_EX);
    const std::string made = base / "data";
    if (!fs::exists(base / "complete")) {
        fs::remove_all(made);
        MakeForNobody(made);
        Process maker;
        maker.Start({std::string(kPostgresDirectory) + "/initdb", "-D", made, "-U", "postgres",
                     "--auth=trust", "--no-sync", "--no-instructions", "-E", "UTF8", "--locale=C.UTF-8"},
                    base / "initdb.log", DropPrivileges);
        if (maker.Wait() == 0) {
            std::ofstream(base / "complete") << "";
        }
    }
    ::close(lock);
    return made;
}

}  // namespace

BrokerServer::BrokerServer(std::string directory, std::string name, std::string extra)
    : directory_(std::move(directory)),
      name_(std::move(name)),
      extra_(std::move(extra)),
      port_(FreePort()),
      monitorPort_(FreePort()) {
    fs::create_directories(directory_);
}

void BrokerServer::Launch() {
    const std::string path = directory_ + "/server.conf";
    std::ofstream(path) << "server_name: " << name_ << "\nlisten: 127.0.0.1:" << port_
                        << "\nhttp: 127.0.0.1:" << monitorPort_
                        << "\njetstream { store_dir: " << Quoted(directory_ + "/store") << " }\n"
                        << extra_ << '\n';
    process_.Start({"nats-server", "-c", path}, directory_ + "/log");
}

bool BrokerServer::WaitUntilReady() const {
    return WaitFor(
        [this] { return !process_.IsRunning() || Monitor("/healthz").find("ok") != std::string::npos; });
}

bool BrokerServer::Start() {
    Launch();
    return WaitUntilReady() && process_.IsRunning();
}

std::string BrokerServer::GetUrl() const {
    return "nats://127.0.0.1:" + std::to_string(port_);
}

std::string BrokerServer::Monitor(const std::string& path) const {
    return RunShell("curl -sf --max-time 5 'http://127.0.0.1:" + std::to_string(monitorPort_) + path +
                    "' 2>/dev/null");
}

BrokerCluster::BrokerCluster(const std::string& directory) {
    constexpr int size = 3;
    std::vector<int> ports;
    std::string routes;
    for (int i = 0; i < size; ++i) {
        ports.push_back(FreePort());
        routes += (routes.empty() ? "nats://" : ", nats://") + std::string("127.0.0.1:") +
                  std::to_string(ports.back());
    }
    for (int i = 0; i < size; ++i) {
        const std::string name = "n" + std::to_string(i + 1);
        servers_.push_back(std::make_unique<BrokerServer>(
            directory + "/" + name, name,
            "cluster { name: lum, listen: 127.0.0.1:" + std::to_string(ports[static_cast<std::size_t>(i)]) +
                ", routes: [" + routes + " ] }"));
    }
}

bool BrokerCluster::Start() {
    for (const auto& server : servers_) {
        server->Launch();
    }
    for (const auto& server : servers_) {
        if (!server->WaitUntilReady()) {
            return false;
        }
    }
    return true;
}

std::string BrokerCluster::GetUrls() const {
    std::string urls;
    for (const auto& server : servers_) {
        urls += (urls.empty() ? "" : ",") + server->GetUrl();
    }
    return urls;
}

std::size_t BrokerCluster::FindStreamLeader() const {
    for (const auto& server : servers_) {
        const auto json = nlohmann::json::parse(server->Monitor("/jsz?streams=1&accounts=1"), nullptr, false);
        const auto leader =
            json.is_object()
                ? json.value("/account_details/0/stream_detail/0/cluster/leader"_json_pointer, "")
                : std::string();
        for (std::size_t i = 0; i < servers_.size() && !leader.empty(); ++i) {
            if (servers_[i]->GetName() == leader && servers_[i]->GetProcess().IsRunning()) {
                return i;
            }
        }
    }
    return servers_.size();
}

DatabaseServer::DatabaseServer(std::string directory) : directory_(std::move(directory)) {
    OpenTheWayTo(directory_ + "/x");
    MakeForNobody(directory_ + "/socket");
    ::chmod((directory_ + "/socket").c_str(), 0755);
    static_cast<void>(RunShell("cp -a " + Quoted(TemplateDirectory()) + " " + Quoted(directory_ + "/data")));
    std::ofstream(directory_ + "/log") << "";
    ::chmod((directory_ + "/log").c_str(), 0666);
}

DatabaseServer::~DatabaseServer() {
    Kill();
}

bool DatabaseServer::Start() {
    process_.Start({std::string(kPostgresDirectory) + "/postgres", "-D", directory_ + "/data", "-k",
                    directory_ + "/socket", "-c", "listen_addresses=", "-c", "fsync=off", "-c",
                    "shared_buffers=16MB", "-c", "max_connections=40"},
                   directory_ + "/log", DropPrivileges);
    const bool ready =
        WaitFor([this] { return !process_.IsRunning() || Query("SELECT 1", "postgres") == "1\n"; });
    return ready && process_.IsRunning();
}

void DatabaseServer::Kill() {
    if (process_.GetId() == 0) {
        return;
    }
    const std::string children =
        RunShell("cat /proc/" + std::to_string(process_.GetId()) + "/task/*/children 2>/dev/null; true");
    process_.Kill();
    std::size_t position = 0;
    for (std::string rest = children; !rest.empty() && rest.find_first_of("0123456789") != std::string::npos;
         rest.erase(0, position)) {
        ::kill(static_cast<pid_t>(std::stol(rest, &position)), SIGKILL);
    }
    // The next server refuses to start while one of them still holds the shared memory.
    static_cast<void>(WaitFor([&] {
        std::size_t place = 0;
        for (std::string rest = children; rest.find_first_of("0123456789") != std::string::npos;
             rest.erase(0, place)) {
            if (::kill(static_cast<pid_t>(std::stol(rest, &place)), 0) == 0) {
                return false;
            }
        }
        return true;
    }));
}

void DatabaseServer::Stop() {
    process_.Signal(SIGINT);  // "fast": connections are ended
    process_.Wait();
}

std::string DatabaseServer::GetParameters(const std::string& name) const {
    return "host=" + directory_ + "/socket user=postgres dbname=" + name;
}

std::string DatabaseServer::Query(const std::string& sql, const std::string& name) const {
    const std::string path = directory_ + "/query.sql";
    std::ofstream(path) << sql << ";\n";
    return RunShell("psql -X -q -A -t -v ON_ERROR_STOP=1 -f " + Quoted(path) + " '" + GetParameters(name) +
                    "' 2>>" + Quoted(directory_ + "/psql.log"));
}
