// Two clients create events through the control socket until the agent is killed in the middle of it; it
// starts again and is killed again, as many times as the argument says. Ends with a failure where an event
// whose creation was answered with status 0 is missing, where there is one that nobody asked for, or where
// the database is damaged.

#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/AgentProcess.h"
#include "support/Program.h"
#include "support/TestAgent.h"
#include "support/WaitFor.h"

namespace {

const ModelText kModel{.name = "Kill",
                       .params = {{.name = "Number", .type = ParamType::kInteger}, {.name = "Text"}}};

using Numbers = std::set<uint32_t>;

/// Creates numbered events on one connection, from `next` on in steps of `step`, until it breaks.
class Client {
public:
    Client(uint32_t first, uint32_t step) : next_(first), step_(step) {}

    void Run(const std::string& socketPath) {
        HttpClient connection(socketPath);
        while (connection.IsConnected()) {
            const uint32_t number = next_;
            next_ += step_;
            asked_.insert(number);
            const HttpReply reply = connection.Request(
                "POST", "/actions/EventLogManagerCreateEvent",
                R"({"Values":{"ModelName":"Kill","EventParams":{"Number":)" + std::to_string(number) +
                    R"(,"Text":"it's number )" + std::to_string(number) + R"("}}})");
            if (reply.status == 0) {
                return;
            }
            if (reply.body.starts_with(R"({"status":0,)")) {
                answered_.insert(number);
                ++count_;
            } else {
                refusal_ = reply.body;
                return;
            }
        }
    }

    [[nodiscard]] std::size_t Count() const { return count_; }
    [[nodiscard]] const Numbers& Asked() const { return asked_; }
    [[nodiscard]] const Numbers& Answered() const { return answered_; }
    /// An answer that was no success; empty where there was none.
    [[nodiscard]] const std::string& Refusal() const { return refusal_; }

private:
    uint32_t next_;
    const uint32_t step_;
    std::atomic<std::size_t> count_{0};
    Numbers asked_;
    Numbers answered_;
    std::string refusal_;
};

class KillTest {
public:
    KillTest() {
        agent_.WriteShippedSettings();
        agent_.Drop(kModel);
    }

    /// One life of the agent, ended once `enough` more creations were answered.
    void RunAndKill(std::size_t enough) {
        Require(agent_.StartAndServe(), "the agent does not start");
        Check();
        const std::size_t wanted = CountAnswered() + enough;
        std::array<std::thread, 2> threads;
        for (std::size_t i = 0; i < threads.size(); ++i) {
            threads[i] = std::thread([this, i] { clients_[i].Run(agent_.GetSocketPath()); });
        }
        const bool hasEnough = WaitFor([&] { return CountAnswered() >= wanted; });
        agent_.Signal(SIGKILL);
        for (std::thread& thread : threads) {
            thread.join();
        }
        Require(agent_.Wait() == -SIGKILL, "the agent was gone before it was killed");
        for (const Client& client : clients_) {
            Require(client.Refusal().empty(), "an event was refused: " + client.Refusal());
        }
        Require(hasEnough, "the events take too long");
    }

    /// The last start, and an orderly end.
    void Finish() {
        Require(agent_.StartAndServe(), "the agent does not start");
        Check();
        Require(agent_.Stop() == 0, "the agent does not stop");
        Check();
    }

    [[nodiscard]] std::size_t CountAnswered() const { return clients_[0].Count() + clients_[1].Count(); }
    [[nodiscard]] std::size_t CountStored() const { return stored_; }
    [[nodiscard]] std::string ReadLog() const { return agent_.ReadLog(); }

private:
    void Check() {
        const Sqlite database = agent_.Database();
        Require(database.Rows("pragma integrity_check") == "ok", "the database is damaged");
        Numbers stored;
        for (const std::string& cell :
             database.Column("SELECT C_Number FROM Event_Kill WHERE C_Text = 'it''s number ' || C_Number")) {
            Require(stored.insert(static_cast<uint32_t>(std::stoul(cell))).second,
                    "an event is stored twice: " + cell);
        }
        Require(database.Rows("SELECT COUNT(*) FROM Event_Kill") == std::to_string(stored.size()),
                "an event is not what was sent");
        for (const Client& client : clients_) {
            for (const uint32_t number : client.Answered()) {
                Require(stored.contains(number), "an event is missing: " + std::to_string(number));
            }
        }
        for (const uint32_t number : stored) {
            Require(clients_[number % 2].Asked().contains(number),
                    "nobody asked for an event: " + std::to_string(number));
        }
        stored_ = stored.size();
    }

    AgentProcess agent_;
    std::array<Client, 2> clients_{Client(0, 2), Client(1, 2)};
    std::size_t stored_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    constexpr uint32_t kUsualKills = 20;
    const uint32_t kills = CountFrom(argc, argv, kUsualKills);
    KillTest test;
    const int status = RunProgram([&] {
        std::mt19937 random(20261121);
        for (uint32_t i = 0; i < kills; ++i) {
            test.RunAndKill(1 + random() % 400);
        }
        test.Finish();
        std::printf("%u kills, %zu creations answered, %zu events stored\n", kills, test.CountAnswered(),
                    test.CountStored());
    });
    if (status != 0) {
        std::fprintf(stderr, "%s", test.ReadLog().c_str());
    }
    return status;
}
