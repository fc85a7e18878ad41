// What a burst of failed logons costs others: how long another's creation takes while the agent stores the
// burst, beside the same creation with nothing else to do; and what MachineEvents takes of memory at rest.
//
//     MachineBench [--full]

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "support/AgentProcess.h"
#include "support/HttpClient.h"
#include "support/JournalFile.h"
#include "support/WaitFor.h"

namespace {

struct Sizes {
    int logons;
    uint32_t creates;  // by somebody else, alone
    int most;          // of them during the burst
};

constexpr Sizes kUsual{100'000, 3000, 20'000};
constexpr Sizes kTiny{1000, 20, 20};

constexpr const char* kTarget = "/actions/EventLogManagerCreateEvent";
constexpr const char* kBody =
    R"({"Values":{"ModelName":"Bench","EventParams":{"Application":"a","Count":1,"Remote":true,"Seconds":1.5,"User":"u"}}})";
constexpr int kKnown = 10;  // logons that are there before the burst
constexpr std::chrono::seconds kPatience{120};

/// An agent with or without MachineEvents, which reads a journal of the benchmark's own.
class MachineAgent {
public:
    explicit MachineAgent(bool hasMachine) {
        agent_.WriteShippedSettings();
        std::ofstream(agent_.GetConfigDirectory() + "/agent.ini", std::ios::app)
            << (hasMachine ? "MachineEvents = MachineEvents.so\n" : "");
        agent_.GetScratch().MakeDirectory("journal");
        agent_.GetScratch().Write("config/MachineEvents.ini",
                                  "[Journal]\nDirectory = " + agent_.GetScratch() / "journal" + "\n");
        agent_.Drop(BenchModel("Bench"));
        WriteLogons(kKnown, "journal/known.journal", std::time(nullptr) - 3600);
        if (!agent_.StartAndServe() || (hasMachine && !WaitForLogons(kKnown))) {
            Fail("the agent does not start: " + agent_.ReadStandardError());
        }
    }
    MachineAgent(const MachineAgent&) = delete;
    MachineAgent& operator=(const MachineAgent&) = delete;
    ~MachineAgent() { static_cast<void>(agent_.Stop()); }

    /// A journal of so many failed logons, a thousand a second from `begin` on.
    void WriteLogons(int count, const std::string& name, std::time_t begin) const {
        JournalFile journal;
        for (int i = 0; i < count; ++i) {
            journal.Add(begin + i / 1000, {{"_UID", "0"},
                                           {"_COMM", "sshd"},
                                           {"MESSAGE", "Failed password for user" + std::to_string(i) +
                                                           " from 192.0.2.8 port 5 ssh2"}});
        }
        if (!journal.Write(agent_.GetScratch() / name)) {
            Fail("the journal cannot be written");
        }
    }
    [[nodiscard]] int CountLogons() const {
        try {
            return std::atoi(agent_.Database().Rows("SELECT count(*) FROM Event_Logon").c_str());
        } catch (const std::runtime_error&) {
            return 0;  // there is no such table yet
        }
    }
    [[nodiscard]] bool WaitForLogons(int count) const {
        return WaitFor([&] { return CountLogons() >= count; }, kPatience);
    }
    void Burst() const {
        std::filesystem::rename(agent_.GetScratch() / "burst.journal",
                                agent_.GetScratch() / "journal/burst.journal");
    }
    [[nodiscard]] HttpClient Connect() const { return HttpClient(agent_.GetSocketPath()); }

    /// Memory of its own of the agent and of the programs that it has started, in MB.
    [[nodiscard]] double OwnMegabytes() const {
        double kilobytes = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
            const std::string status = ReadWholeFile(entry.path() / "status");
            if (Number(status, "Pid:") == agent_.GetId() || Number(status, "PPid:") == agent_.GetId()) {
                kilobytes += static_cast<double>(Number(status, "RssAnon:"));
            }
        }
        return kilobytes / 1024;
    }

private:
    [[nodiscard]] static long Number(const std::string& status, const std::string& key) {
        const std::size_t at = status.find("\n" + key);
        return at == std::string::npos ? -1 : std::atol(status.c_str() + at + 1 + key.size());
    }

    AgentProcess agent_;
};

/// Creates events one after another while `goesOn` answers true; how long each took, in seconds.
template <class Condition>
std::vector<double> Create(HttpClient& client, Condition goesOn) {
    std::vector<double> times;
    while (goesOn(times.size())) {
        times.push_back(SecondsOf([&] {
            if (client.Request("POST", kTarget, kBody).status != 200) {
                Fail("an event was not created");
            }
        }));
    }
    return times;
}

void BenchBurst(const Sizes& sizes) {
    const MachineAgent agent(true);
    agent.WriteLogons(sizes.logons, "burst.journal", std::time(nullptr) - 600);
    HttpClient client = agent.Connect();
    const auto alone = [&](std::size_t done) { return done < sizes.creates; };
    static_cast<void>(Create(client, alone));
    std::vector<double> before = Create(client, alone);
    agent.Burst();
    if (!agent.WaitForLogons(kKnown + 1)) {
        Fail("the burst does not come");
    }
    std::vector<double> during;
    const double seconds = SecondsOf([&] {
        during = Create(client, [&](std::size_t done) {
            // Asking for the count costs more than a creation, so it is asked for now and then.
            return static_cast<int>(done) < sizes.most &&
                   (done % 100 != 0 || done == 0 || agent.CountLogons() < sizes.logons);
        });
        if (!agent.WaitForLogons(sizes.logons)) {
            Fail("the burst is not stored whole");
        }
    });
    const std::vector<double> after = Create(client, alone);
    before.insert(before.end(), after.begin(), after.end());
    std::printf("burst: %d failed logons, %.0f stored a second beside %zu creations of another\n",
                sizes.logons, sizes.logons / seconds, during.size());
    const double ours = Percentile99(during) * 1e6;
    const double floor = Percentile99(before) * 1e6;
    PrintRow("another's creation during a burst of logons, p99 us, beside alone", ours, floor, ours / floor,
             "at most 2");
    const double middle = Median(during) * 1e6;
    const double aloneMiddle = Median(before) * 1e6;
    PrintRow("the same, median us", middle, aloneMiddle, middle / aloneMiddle, "");
}

void BenchRest() {
    const double without = MachineAgent(false).OwnMegabytes();
    const double with = MachineAgent(true).OwnMegabytes();
    std::printf(
        "at rest: %.1f MB of memory of its own without MachineEvents, %.1f MB with it and its programs\n",
        without, with);
}

}  // namespace

int main(int argc, char** argv) {
    const Sizes& sizes = IsTiny(argc, argv) ? kTiny : kUsual;
    PrintHead();
    BenchBurst(sizes);
    BenchRest();
    return 0;
}
