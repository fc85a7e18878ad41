// Clients that send a byte a second, as many as the agent has places for and some more: all the while, others
// are served, and the agent stays small.
//
//     SlowClients [CLIENTS [SECONDS]]

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>

#include "support/AgentProcess.h"
#include "support/TestAgent.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kRequest = "POST /actions/EchoBack HTTP/1.1\r\nHost: a\r\nContent-Length: 1000\r\n\r\n";

void RaiseDescriptorLimit() {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

/// A client that sends its request byte by byte, and comes back when it is dropped.
class SlowClient {
public:
    explicit SlowClient(const std::string& socket) : socket_(&socket) { client_.emplace(socket); }

    void SendOne() {
        const char byte = kRequest[sent_ % 60];
        if (!client_->IsConnected() || !client_->Send(std::string_view(&byte, 1))) {
            client_.emplace(*socket_);
            sent_ = 0;
            return;
        }
        ++sent_;
    }

private:
    const std::string* socket_;
    std::optional<HttpClient> client_;
    std::size_t sent_ = 0;
};

double MemoryMegabytes(const AgentProcess& agent) {
    const std::string metrics = agent.Request("GET", "/metrics").body;
    const std::string name = "\nprocess_resident_memory_bytes ";
    const std::size_t at = metrics.find(name);
    Require(at != std::string::npos, "no figure of the memory");
    return std::strtod(metrics.c_str() + at + name.size(), nullptr) / (1 << 20);
}

void Run(std::size_t count, int seconds) {
    AgentProcess agent;
    agent.WriteIni("[Modules]\nEcho = " + TestModule("Echo") + "\n");
    // Half of the descriptors are places for clients: fewer than there are.
    agent.descriptorLimit = count + count / 2;
    Require(agent.StartAndServe(), "the agent does not start");
    const std::string socket = agent.GetSocketPath();
    std::vector<SlowClient> clients;
    clients.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        clients.emplace_back(socket);
    }
    std::chrono::duration<double> longest{0};
    for (const auto end = Clock::now() + std::chrono::seconds(seconds); Clock::now() < end;) {
        const auto next = Clock::now() + std::chrono::seconds(1);
        for (SlowClient& client : clients) {
            client.SendOne();
        }
        do {
            const auto begin = Clock::now();
            Require(agent.Request("POST", "/actions/EchoBack", "{}").status == 200, "a client is locked out");
            longest = std::max<std::chrono::duration<double>>(longest, Clock::now() - begin);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        } while (Clock::now() < next);
    }
    const double memory = MemoryMegabytes(agent);
    clients.clear();
    Require(agent.Stop() == 0, "the agent does not stop");
    std::printf("%zu clients, %zu places: the longest of the others' calls took %.3f s, the agent %.1f MB.\n",
                count, agent.descriptorLimit / 2, longest.count(), memory);
}

}  // namespace

int main(int argc, char** argv) {
    const std::size_t count = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 4096;
    const int seconds = argc > 2 ? std::atoi(argv[2]) : 60;
    RaiseDescriptorLimit();
    try {
        Run(count, seconds);
    } catch (const std::exception& error) {
        std::printf("failed: %s\n", error.what());
        return 1;
    }
    return 0;
}
