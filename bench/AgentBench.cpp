// What an event costs that comes through the control socket of a real agent, beside the same action called in
// this process; and what an agent that has nothing to do takes.
//
//     AgentBench [--full]
//     AgentBench --load SOCKET CLIENTS CREATES   creates events at an agent that runs, of another build
//     perhaps,
//                                                and that has the model Bench

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

#include "BenchSupport.h"
#include "agent/request/RequestRouter.h"
#include "host/container/LumContainer.h"
#include "host/core/ActionDb.h"
#include "support/AgentProcess.h"

namespace {

struct Sizes {
    int rounds;
    uint32_t creates;  // in one round
    uint32_t models;   // of the idle agent
    int idleMs;        // how long it is watched
};

constexpr Sizes kUsual{5, 8000, 200, 25000};
constexpr Sizes kTiny{1, 40, 5, 200};

constexpr uint32_t kManyClients = 8;
constexpr const char* kAction = "EventLogManagerCreateEvent";
constexpr const char* kTarget = "/actions/EventLogManagerCreateEvent";

/// The body of the request that creates event number `number`.
std::string Body(uint32_t number) {
    return R"({"Values":{"ModelName":"Bench","EventParams":{"Application":"program-)" +
           std::to_string(number % 1000) + R"(","Count":)" + std::to_string(number) +
           R"(,"Remote":true,"Seconds":1.125,"User":"user)" + std::to_string(number % 1000) + R"("}}})";
}

/// A real agent with both modules and these models.
class RunningAgent {
public:
    explicit RunningAgent(uint32_t models, const std::string& synchronous = "normal") {
        agent_.WriteIni("[Database]\nSynchronous = " + synchronous +
                        "\n[Modules]\nFileStore = FileStore.so\nEventLogManager = EventLogManager.so\n");
        agent_.GetScratch().Write("config/EventLogManager.ini", Shipped("EventLogManager.ini"));
        for (uint32_t i = 0; i < models; ++i) {
            agent_.Drop(BenchModel(i == 0 ? "Bench" : "Model" + std::to_string(i)));
        }
        if (!agent_.StartAndServe()) {
            Fail("the agent does not start: " + agent_.ReadStandardError());
        }
    }
    RunningAgent(const RunningAgent&) = delete;
    RunningAgent& operator=(const RunningAgent&) = delete;
    ~RunningAgent() { static_cast<void>(agent_.Stop()); }

    [[nodiscard]] std::vector<HttpClient> Connect(uint32_t clients) const {
        std::vector<HttpClient> connections;
        for (uint32_t i = 0; i < clients; ++i) {
            connections.emplace_back(agent_.GetSocketPath());
        }
        return connections;
    }

    [[nodiscard]] const AgentProcess& Process() const { return agent_; }

    [[nodiscard]] double ResidentMegabytes() const {
        std::ifstream file(ProcessFile("statm"));
        double pages = 0;
        file >> pages >> pages;
        return pages * static_cast<double>(::sysconf(_SC_PAGESIZE)) / (1U << 20U);
    }

    /// Time on a processor of all its threads so far, in nanoseconds.
    [[nodiscard]] uint64_t ProcessorTime() const {
        uint64_t sum = 0;
        for (const auto& task : std::filesystem::directory_iterator(ProcessFile("task"))) {
            std::ifstream file(task.path() / "schedstat");
            uint64_t nanoseconds = 0;
            file >> nanoseconds;
            sum += nanoseconds;
        }
        return sum;
    }

private:
    [[nodiscard]] std::string ProcessFile(const char* name) const {
        return "/proc/" + std::to_string(agent_.GetId()) + "/" + name;
    }

    AgentProcess agent_;
};

void CallInProcess(const LumContainer& given) {
    LumContainer arguments = given;
    uint32_t status = 0;
    if (!ActionDbCallAction(kAction, arguments, status) || status != 0) {
        Fail("an event was not created");
    }
}

/// The other end of a socket pair: answers each request of `size` bytes with `reply`.
class Echo {
public:
    Echo(std::size_t size, std::string reply) : size_(size), reply_(std::move(reply)) {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_) != 0) {
            Fail("no socket pair");
        }
        thread_ = std::thread([this] { Serve(); });
    }
    Echo(const Echo&) = delete;
    Echo& operator=(const Echo&) = delete;
    ~Echo() {
        ::shutdown(ends_[0], SHUT_RDWR);
        thread_.join();
        ::close(ends_[0]);
        ::close(ends_[1]);
    }

    void Ask(const std::string& request) {
        std::string answer(reply_.size(), '\0');
        if (::send(ends_[0], request.data(), size_, MSG_NOSIGNAL) != static_cast<ssize_t>(size_) ||
            ::recv(ends_[0], answer.data(), answer.size(), MSG_WAITALL) !=
                static_cast<ssize_t>(answer.size())) {
            Fail("no echo");
        }
    }

private:
    void Serve() const {
        std::string request(size_, '\0');
        while (::recv(ends_[1], request.data(), size_, MSG_WAITALL) == static_cast<ssize_t>(size_)) {
            if (::send(ends_[1], reply_.data(), reply_.size(), MSG_NOSIGNAL) < 0) {
                return;
            }
        }
    }

    const std::size_t size_;
    const std::string reply_;
    int ends_[2] = {-1, -1};
    std::thread thread_;
};

LumContainer Arguments(uint32_t number) {
    LumContainer arguments;
    LumString error;
    if (!arguments.FromJson(Body(number), error)) {
        Fail(error.GetString());
    }
    return arguments;
}

void CreateAt(HttpClient& connection, uint32_t number) {
    const HttpReply reply = connection.Request("POST", kTarget, Body(number));
    if (!reply.body.starts_with(R"({"status":0,)")) {
        Fail("an event was not created: " + reply.body);
    }
}

void BenchSocket(const Sizes& sizes, const RunningAgent& agent, uint32_t clients) {
    std::vector<HttpClient> connections = agent.Connect(clients);
    const auto bySocket = [&](uint32_t number) {
        // Thread t of TimeCalls makes the calls t, t + clients, ...: a connection belongs to one thread.
        CreateAt(connections[number % clients], number);
    };
    const LumContainer arguments = Arguments(1);
    std::vector<double> ours;
    std::vector<double> floors;
    const auto [ourSeconds, floorSeconds] = Alternate(
        sizes.rounds, [&] { ours = TimeCalls(sizes.creates, clients, bySocket); },
        [&] { floors = TimeCalls(sizes.creates, clients, [&](uint32_t) { CallInProcess(arguments); }); });
    PrintRow("creates a second by socket, " + std::to_string(clients) + " client(s)",
             sizes.creates / ourSeconds, sizes.creates / floorSeconds, floorSeconds / ourSeconds, "");
    const double ourMedian = Median(ours) * 1e6;
    const double floorMedian = Median(floors) * 1e6;
    PrintRow("  a call, us (floor: the action in the process)", ourMedian, floorMedian,
             ourMedian / floorMedian, "");
    const double our99 = Percentile99(ours) * 1e6;
    const double floor99 = Percentile99(floors) * 1e6;
    PrintRow("  99th percentile of a call, us", our99, floor99, our99 / floor99, "");
}

/// A batch whose changes are durable, beside the action in the process without waiting for the disk.
void BenchBatch(const Sizes& sizes) {
    const RunningAgent agent(1, "full");
    std::string lines;
    for (uint32_t i = 0; i < sizes.creates; ++i) {
        lines += Body(i) + "\n";
    }
    const std::string file = agent.Process().GetScratch().Write("lines", lines);
    const LumContainer arguments = Arguments(1);
    const auto [ours, floor] = Alternate(
        sizes.rounds,
        [&] {
            const std::string answers =
                RunShell("curl -sS --unix-socket " + agent.Process().GetSocketPath() + " --data-binary @" +
                         file + " http://agent/batch/EventLogManagerCreateEvent | grep -c '\"status\":0'");
            if (std::strtoul(answers.c_str(), nullptr, 10) != sizes.creates) {
                Fail("an event was not created: " + answers);
            }
        },
        [&] {
            for (uint32_t i = 0; i < sizes.creates; ++i) {
                CallInProcess(arguments);
            }
        });
    PrintRow("creates a second by batch, full", sizes.creates / ours, sizes.creates / floor, floor / ours,
             ">= 0.6");
}

/// Many clients that keep their connections, at any agent.
void Load(const std::string& socket, uint32_t clients, uint32_t creates) {
    std::vector<HttpClient> connections;
    for (uint32_t i = 0; i < clients; ++i) {
        connections.emplace_back(socket);
    }
    std::vector<double> calls;
    const double seconds = SecondsOf([&] {
        calls = TimeCalls(creates, clients,
                          [&](uint32_t number) { CreateAt(connections[number % clients], number); });
    });
    std::printf("%u clients: %.0f creates a second, 99th percentile %.0f us\n", clients, creates / seconds,
                Percentile99(calls) * 1e6);
}

/// The parts of a call that do not depend on the action: a request taken apart and answered, and bytes that
/// go to and fro.
void BenchParts(const Sizes& sizes) {
    LumDebug debug("Agent", "The agent process");
    RequestRouter router({}, debug);
    const Client client{true, 0, {}};
    const LumContainer arguments = Arguments(1);
    const std::string body = Body(1);
    const auto [routed, called] = Alternate(
        sizes.rounds,
        [&] {
            for (uint32_t i = 0; i < sizes.creates; ++i) {
                if (router.Answer({"POST", kTarget, body, client}).status != 200) {
                    Fail("a request was refused");
                }
            }
        },
        [&] {
            for (uint32_t i = 0; i < sizes.creates; ++i) {
                CallInProcess(arguments);
            }
        });
    PrintRow("  of it JSON and action, us", routed / sizes.creates * 1e6, called / sizes.creates * 1e6,
             routed / called, "");
    const std::string request = std::string("POST ") + kTarget +
                                " HTTP/1.1\r\nHost: agent\r\nContent-Length: " + std::to_string(body.size()) +
                                "\r\n\r\n" + body;
    Echo echo(request.size(), std::string(130, 'x'));
    const std::vector<double> echoes = TimeCalls(sizes.creates, 1, [&](uint32_t) { echo.Ask(request); });
    std::printf("%-48s | %14.2f |\n", "  of it an echo of the same bytes, us", Median(echoes) * 1e6);
}

void BenchIdle(const Sizes& sizes) {
    const RunningAgent agent(sizes.models);
    constexpr int kStepMs = 100;
    const uint64_t before = agent.ProcessorTime();
    uint64_t last = before;
    int busySteps = 0;
    const int steps = sizes.idleMs / kStepMs;
    for (int i = 0; i < steps; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(kStepMs));
        const uint64_t now = agent.ProcessorTime();
        busySteps += now != last ? 1 : 0;
        last = now;
    }
    std::printf("%-48s | %14.2f | %14s | %6s | %s\n", "idle, both modules, resident, MB",
                agent.ResidentMegabytes(), "", "", "<= 24");
    std::printf("%-48s | %14.2f |\n", "  processor time, us a second",
                static_cast<double>(last - before) / sizes.idleMs);
    std::printf("%-48s | %14d | %14d |\n", "  tenths of a second with any, of all", busySteps, steps);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 5 && std::string_view(argv[1]) == "--load") {
        Load(argv[2], static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10)),
             static_cast<uint32_t>(std::strtoul(argv[4], nullptr, 10)));
        return 0;
    }
    const Sizes& sizes = IsTiny(argc, argv) ? kTiny : kUsual;
    PrintHead();
    BenchIdle(sizes);
    const RunningAgent agent(1);
    const BenchModule module(false);
    module.StartWith(BenchModel("Bench"));
    for (const uint32_t clients : {1U, kManyClients}) {
        BenchSocket(sizes, agent, clients);
    }
    BenchBatch(sizes);
    BenchParts(sizes);
    return 0;
}
