// Two clients create events through the control socket until the agent is killed in the middle of it; it
// starts again and is killed again, as many times as the argument says. Ends with a failure where an event
// whose creation was answered with status 0 is missing, where there is one that nobody asked for, or where
// the database is damaged.

#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <sqlite3.h>

#include "support/AgentProcess.h"
#include "support/WaitFor.h"

namespace {

constexpr const char* kDefinition =
    "<MODEL><NAME>Kill</NAME><CLASS>Test</CLASS><NOTE>Numbered events</NOTE><SEVERITY>1</SEVERITY>"
    "<TYPE>_EVENTLOG_MODELTYPE_USER_</TYPE><UPLOAD-POLICY>_NEVER_</UPLOAD-POLICY>"
    "<DELETION-POLICY>_NEVER_</DELETION-POLICY><PARAMS>"
    "<PARAM><NAME>Number</NAME><TYPE>_INTEGER_</TYPE></PARAM>"
    "<PARAM><NAME>Text</NAME><TYPE>_STRING_</TYPE></PARAM></PARAMS></MODEL>";

using Numbers = std::set<uint32_t>;

struct Failure {
    std::string what;
};

void Require(bool holds, const std::string& what) {
    if (!holds) {
        throw Failure{what};
    }
}

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

/// The first column of a statement's rows, one text a row.
std::vector<std::string> Column(const std::string& databasePath, const std::string& sql) {
    sqlite3* database = nullptr;
    sqlite3_stmt* statement = nullptr;
    std::vector<std::string> cells;
    int status = sqlite3_open_v2(databasePath.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_busy_timeout(database, 5000);
    if (status == SQLITE_OK) {
        status = sqlite3_prepare_v2(database, sql.c_str(), -1, &statement, nullptr);
    }
    while (status == SQLITE_OK && (status = sqlite3_step(statement)) == SQLITE_ROW) {
        cells.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
        status = SQLITE_OK;
    }
    const std::string message = sqlite3_errmsg(database);
    sqlite3_finalize(statement);
    sqlite3_close(database);
    Require(status == SQLITE_DONE, sql + ": " + message);
    return cells;
}

class KillTest {
public:
    KillTest() {
        agent_.WriteShippedSettings();
        agent_.GetScratch().Write("data/EventLogManager/models/Kill.xml", kDefinition);
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
        const std::string path = agent_.GetDataDirectory() + "/EventLogManager/EventLogManager.sqlite3";
        Require(Column(path, "pragma integrity_check") == std::vector<std::string>{"ok"},
                "the database is damaged");
        Numbers stored;
        for (const std::string& cell :
             Column(path, "SELECT C_Number FROM Event_Kill WHERE C_Text = 'it''s number ' || C_Number")) {
            Require(stored.insert(static_cast<uint32_t>(std::stoul(cell))).second,
                    "an event is stored twice: " + cell);
        }
        Require(Column(path, "SELECT COUNT(*) FROM Event_Kill").front() == std::to_string(stored.size()),
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
    const int kills = argc > 1 ? std::atoi(argv[1]) : 20;
    KillTest test;
    try {
        std::mt19937 random(20261121);
        for (int i = 0; i < kills; ++i) {
            test.RunAndKill(1 + random() % 400);
        }
        test.Finish();
    } catch (const Failure& failure) {
        std::fprintf(stderr, "failed: %s\n%s", failure.what.c_str(), test.ReadLog().c_str());
        return 1;
    }
    std::printf("%d kills, %zu creations answered, %zu events stored\n", kills, test.CountAnswered(),
                test.CountStored());
    return 0;
}
