// The agent reads a package log of so many lines into its record and is killed in the middle of it, again and
// again; lines are added and the log is rotated meanwhile. MachineKilled [KILLS [LINES]]. Ends with a failure
// where, after the last start, a line has no event or more than one.

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>

#include "support/AgentProcess.h"
#include "support/WaitFor.h"

namespace {

class KillTest {
public:
    explicit KillTest(int lines) : lines_(lines) {
        agent_.WriteShippedSettings();
        std::ofstream(agent_.GetConfigDirectory() + "/agent.ini", std::ios::app)
            << "MachineEvents = MachineEvents.so\n";
        agent_.GetScratch().Write(
            "config/MachineEvents.ini",
            "[MachineEvents]\nBackfillDays = 36500\nRetrySeconds = 1\n"
            "[Packages]\nLog = " +
                LogPath() +
                "\n[Sessions]\nEnabled = 0\n[Machine]\nEnabled = 0\n[Services]\nEnabled = 0\n"
                "[Disks]\nEnabled = 0\n[Load]\nEnabled = 0\n[Devices]\nEnabled = 0\n");
        Append(lines_ / 2);
    }

    /// One life of the agent, ended once `enough` more events are stored.
    void RunAndKill(int enough) {
        const int wanted = std::min(Count() + enough, written_);
        agent_.Start();
        bool goesOn = true;
        for (int count = Count(); goesOn && count < wanted; count = Count()) {
            goesOn = WaitFor([&] { return Count() > count || !agent_.IsRunning(); }) && agent_.IsRunning();
        }
        agent_.Signal(SIGKILL);
        if (agent_.Wait() != -SIGKILL || !goesOn) {
            throw std::runtime_error("the events do not come");
        }
    }
    /// What happens to the log meanwhile: it grows, and once it is set aside.
    void Disturb(int turn, int turns) {
        Append(std::min(lines_ / turns + 1, lines_ - written_));
        if (turn == turns / 2) {
            std::filesystem::rename(LogPath(), LogPath() + ".1");
            Append(1);
        }
    }
    /// The last life, to the last line.
    void Finish() {
        Append(lines_ - written_);
        RunAndKill(lines_);
        const std::string rows = Value(
            "SELECT COUNT(*) || ' ' || COUNT(DISTINCT C_Package) || ' ' || COUNT(DISTINCT C_Record) "
            "FROM Event_PackageHistory");
        const std::string all = std::to_string(lines_);
        if (rows != all + " " + all + " " + all) {
            throw std::runtime_error("events, packages and records are not " + all + " each: " + rows);
        }
        if (Value("pragma integrity_check") != "ok") {
            throw std::runtime_error("the database is damaged");
        }
    }
    [[nodiscard]] std::string ReadLog() const { return agent_.ReadLog(); }

private:
    [[nodiscard]] std::string LogPath() const { return agent_.GetScratch() / "dpkg.log"; }
    /// Several lines a second, as a package manager writes them.
    void Append(int count) {
        std::ofstream log(LogPath(), std::ios::app);
        for (int i = 0; i < count && written_ < lines_; ++i, ++written_) {
            char time[32];
            std::snprintf(time, sizeof(time), "2026-11-20 %02d:%02d:%02d", written_ / 36000 % 24,
                          written_ / 600 % 60, written_ / 10 % 60);
            log << time << " install package" << written_ << ":amd64 <none> 1.0-1\n";
        }
    }
    [[nodiscard]] std::string Value(const std::string& sql) const {
        try {
            return agent_.Database().Rows(sql);
        } catch (const std::runtime_error&) {
            return {};  // there is no such table yet
        }
    }
    /// 0 as long as there is no table yet.
    [[nodiscard]] int Count() const {
        return std::atoi(Value("SELECT COUNT(*) FROM Event_PackageHistory").c_str());
    }

    AgentProcess agent_;
    const int lines_;
    int written_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    const int kills = argc > 1 ? std::atoi(argv[1]) : 20;
    const int lines = argc > 2 ? std::atoi(argv[2]) : 10'000;
    KillTest test(lines);
    try {
        std::mt19937 random(20261121);
        for (int i = 0; i < kills; ++i) {
            test.RunAndKill(static_cast<int>(1 + random() % static_cast<unsigned>(2 * lines / kills)));
            test.Disturb(i, kills);
        }
        test.Finish();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "failed: %s\n%s", failure.what(), test.ReadLog().c_str());
        return 1;
    }
    std::printf("%d kills, %d lines, one event each\n", kills, lines);
    return 0;
}
