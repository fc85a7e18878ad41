#pragma once

#include <cstdint>
#include <memory>
#include <queue>
#include <random>
#include <string>
#include <vector>

#include "fleet/forward/ForwardSettings.h"
#include "simulation/ConnectionLoop.h"
#include "simulation/SimulatedDevice.h"
#include "support/FleetServers.h"
#include "support/Process.h"
#include "support/TempDirectory.h"

/// What is simulated.
struct SimulationSettings {
    uint32_t devices = 300;
    uint32_t connected = 60;     ///< so many are switched on at any time, in turns
    int64_t hours = 3;           ///< simulated
    int64_t batchesPerHour = 1;  ///< of each device that is switched on
    int64_t speed = 2'400;       ///< simulated seconds a second, at most
    int64_t outageMinutes = 60;
    uint64_t seed = 1;
};

struct SimulationReport {
    uint64_t made = 0;
    uint64_t sent = 0;      ///< repeats included
    uint64_t restarts = 0;  ///< of forwarders, besides devices that are switched on
    uint64_t restored = 0;  ///< batches that were put back after the database had them
    uint64_t rejected = 0;
    std::vector<Delivery> deliveries;
    std::vector<int64_t> returns;  ///< when each connection after the outage was made, ms after its end
    int64_t outageStartMs = 0;
    int64_t outageEndMs = 0;
    double realSeconds = 0;
    std::size_t brokerBytes = 0;  ///< the most memory that the broker had
};

/// Devices in simulated time, a real broker, a real database and two real collectors. Devices are switched on
/// in turns, their forwarders are started again now and then, outboxes are restored from backups, a collector
/// is killed and the broker is away for an hour; in the end every device empties its outbox.
class FleetSimulation {
public:
    explicit FleetSimulation(const SimulationSettings& settings);

    /// False, with the reason in `error`, where it could not be played to its end.
    [[nodiscard]] bool Play(SimulationReport& report, std::string& error);
    [[nodiscard]] std::string Query(const std::string& sql) const { return database_.Query(sql); }
    [[nodiscard]] const std::vector<SimulatedDevice>& GetDevices() const { return devices_; }

private:
    enum class Kind : uint8_t {
        kSwitchOn,
        kSwitchOff,
        kMake,
        kTry,
        kKillCollector,
        kOutageBegins,
        kOutageEnds
    };
    struct Event {
        int64_t atMs;
        Kind kind;
        uint32_t device;
        bool operator>(const Event& other) const { return atMs > other.atMs; }
    };

    [[nodiscard]] bool StartServers(std::string& error);
    void StartCollector(std::size_t index);
    void PlanTurns();
    void Plan(int64_t atMs, Kind kind, uint32_t device = 0);
    /// Lets real time pass until it is `atMs` of the simulated one.
    void WaitUntil(int64_t atMs);
    [[nodiscard]] bool Handle(const Event& event, std::string& error);
    void SwitchOn(uint32_t device);
    void TryToConnect(uint32_t device);
    void MakeBatch(uint32_t device);
    void Send(uint32_t device);
    void Take(uint32_t device, std::string_view subject, std::string_view data);
    void Ask();
    void Turn(int waitMs);
    /// Has every device that holds something come once more.
    [[nodiscard]] bool EmptyOutboxes(std::string& error);

    const SimulationSettings settings_;
    const int64_t spanMs_;
    const ForwardSettings forward_;
    std::mt19937_64 random_;
    TempDirectory scratch_;
    BrokerServer broker_;
    DatabaseServer database_;
    std::vector<std::unique_ptr<Process>> collectors_;
    ConnectionLoop loop_;
    std::vector<SimulatedDevice> devices_;
    std::vector<bool> tryPlanned_;
    std::vector<bool> makePlanned_;
    std::priority_queue<Event, std::vector<Event>, std::greater<>> events_;
    bool brokerIsThere_ = true;
    int64_t nowMs_ = 0;        ///< simulated
    int64_t realStartMs_ = 0;  ///< when simulated time 0 was
    int64_t askAtRealMs_ = 0;
    SimulationReport report_;
};
