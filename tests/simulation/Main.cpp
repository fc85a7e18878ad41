#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

#include "simulation/FleetSimulation.h"

/// Plays a fleet (FleetSimulation.h) and says what became of it; exit status 1 where something is lost or
/// twice, or a fleet of a thousand devices or more comes back in a stampede or too late:
///
///     fleet_simulation [--devices N] [--connected N] [--hours N] [--batches-per-hour N] [--speed N] [--seed
///     N]

namespace {

constexpr int64_t kLateMs = 60'000;
constexpr int64_t kBackWithinMs = 600'000;
constexpr int64_t kBinMs = 30'000;
constexpr std::size_t kEnoughForShape = 1'000;

bool ReadSettings(int argc, char** argv, SimulationSettings& settings) {
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        const int64_t value = i + 1 < argc ? std::atoll(argv[i + 1]) : 0;
        if (value <= 0) {
            return false;
        }
        if (name == "--devices") {
            settings.devices = static_cast<uint32_t>(value);
        } else if (name == "--connected") {
            settings.connected = static_cast<uint32_t>(value);
        } else if (name == "--hours") {
            settings.hours = value;
        } else if (name == "--batches-per-hour") {
            settings.batchesPerHour = value;
        } else if (name == "--speed") {
            settings.speed = value;
        } else if (name == "--seed") {
            settings.seed = static_cast<uint64_t>(value);
        } else {
            return false;
        }
    }
    return settings.connected <= settings.devices;
}

int64_t At(const std::vector<int64_t>& sorted, double part) {
    return sorted.empty() ? 0
                          : sorted[static_cast<std::size_t>(static_cast<double>(sorted.size() - 1) * part)];
}

/// How many devices have not exactly their batches in the database.
uint64_t CountWrong(const FleetSimulation& simulation) {
    std::map<std::string, uint32_t> stored;
    std::istringstream rows(simulation.Query("SELECT device, count(*) FROM lum.batch GROUP BY 1"));
    for (std::string row; std::getline(rows, row);) {
        const std::size_t bar = row.find('|');
        stored[row.substr(0, bar)] = static_cast<uint32_t>(std::stoul(row.substr(bar + 1)));
    }
    uint64_t wrong = 0;
    for (const SimulatedDevice& device : simulation.GetDevices()) {
        wrong += stored[device.GetName()] == device.CountMade() ? 0U : 1U;
    }
    return wrong;
}

bool CheckRows(const FleetSimulation& simulation, const SimulationReport& report) {
    const std::string events = std::to_string(report.made * kEventsOfBatch);
    const std::string found = simulation.Query(
        "SELECT count(*), count(DISTINCT (device, \"Number\")) FROM lum.\"event_Simulated\"");
    const uint64_t wrong = CountWrong(simulation);
    std::printf(
        "batches: %lu made, %lu sent (%lu forwarders started again, %lu batches restored), %lu rejected\n",
        report.made, report.sent, report.restarts, report.restored, report.rejected);
    std::printf("events in the database and different ones among them: %s of %s\n",
                found.substr(0, found.find('\n')).c_str(), events.c_str());
    std::printf("devices whose batches the database does not hold exactly once: %lu\n", wrong);
    return found == events + "|" + events + "\n" && wrong == 0 && report.rejected == 0;
}

/// How late batches were, and when that was over after the outage.
bool CheckLag(const SimulationReport& report) {
    std::vector<int64_t> usual;
    int64_t lastLate = report.outageEndMs;
    for (const Delivery& delivery : report.deliveries) {
        if (delivery.atMs < report.outageStartMs || delivery.atMs > report.outageEndMs + kBackWithinMs) {
            usual.push_back(delivery.lagMs);
        }
        if (delivery.lagMs > kLateMs && delivery.atMs > lastLate) {
            lastLate = delivery.atMs;
        }
    }
    std::sort(usual.begin(), usual.end());
    const int64_t back = lastLate - report.outageEndMs;
    std::printf("seconds from a batch to its receipt: %.1f (median), %.1f (99 of 100), %.1f (longest)\n",
                static_cast<double>(At(usual, 0.5)) / 1e3, static_cast<double>(At(usual, 0.99)) / 1e3,
                static_cast<double>(At(usual, 1)) / 1e3);
    std::printf("under a minute again, minutes after the outage: %.1f\n", static_cast<double>(back) / 60e3);
    return back <= kBackWithinMs;
}

/// How those who were away came back.
bool CheckReturn(const SimulationReport& report) {
    std::map<int64_t, std::size_t> bins;
    std::size_t all = 0;
    for (const int64_t atMs : report.returns) {
        if (atMs < ForwardSettings().retryLastMs) {
            ++bins[atMs / kBinMs];
            ++all;
        }
    }
    std::size_t peak = 0;
    for (const auto& [bin, count] : bins) {
        peak = std::max(peak, count);
    }
    const double mean =
        static_cast<double>(all) / static_cast<double>(ForwardSettings().retryLastMs / kBinMs);
    const double ratio = mean > 0 ? static_cast<double>(peak) / mean : 0;
    std::printf(
        "came back within the longest wait: %zu devices; busiest half minute %zu, mean %.0f, ratio %.2f\n",
        all, peak, mean, ratio);
    return all < kEnoughForShape || ratio <= 2;
}

}  // namespace

int main(int argc, char** argv) {
    SimulationSettings settings;
    if (!ReadSettings(argc, argv, settings)) {
        std::fprintf(stderr, "fleet_simulation: wrong command line\n");
        return 2;
    }
    FleetSimulation simulation(settings);
    SimulationReport report;
    std::string error;
    const bool played = simulation.Play(report, error);
    if (!played) {
        std::printf("%s\n", error.c_str());
    }
    std::printf("%u devices, %u switched on at once, %ld simulated hours in %.0f s\n", settings.devices,
                settings.connected, settings.hours, report.realSeconds);
    std::printf("memory of the broker at its peak: %.0f MB\n", static_cast<double>(report.brokerBytes) / 1e6);
    const bool rows = CheckRows(simulation, report);
    const bool lag = CheckLag(report);
    return CheckReturn(report) && lag && rows && played ? 0 : 1;
}
