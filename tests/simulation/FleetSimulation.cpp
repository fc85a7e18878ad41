#include "simulation/FleetSimulation.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "fleet/service/SteadyClock.h"
#include "fleet/wire/BatchHeaders.h"
#include "fleet/wire/Subjects.h"
#include "support/AgentProcess.h"

namespace {

constexpr int64_t kHourMs = 3'600'000;
constexpr int64_t kMinuteMs = 60'000;
constexpr std::size_t kCollectors = 2;
constexpr char kLabel[] = "EventLogManagerEvents";
/// One batch in so many is followed by a new start of the forwarder, or by a restored backup.
constexpr uint64_t kRestartEach = 50;
constexpr uint64_t kRestoreEach = 50;

/// As they are shipped. Only receipts are asked for earlier, as that passes in real time.
ForwardSettings SettingsOfForwarders() {
    ForwardSettings settings;
    settings.askAfterSeconds = 3;
    return settings;
}

}  // namespace

FleetSimulation::FleetSimulation(const SimulationSettings& settings)
    : settings_(settings),
      spanMs_(settings.hours * kHourMs),
      forward_(SettingsOfForwarders()),
      random_(settings.seed),
      broker_(scratch_ / "broker", "n1", "max_connections: 200000"),
      database_(scratch_ / "database"),
      loop_(
          broker_.GetUrl(),
          [this](uint32_t device, std::string_view subject, std::string_view data) {
              Take(device, subject, data);
          },
          [this](uint32_t device) {
              devices_[device].LoseConnection();
              Plan(nowMs_ + devices_[device].NextWait(), Kind::kTry, device);
          }),
      tryPlanned_(settings.devices),
      makePlanned_(settings.devices) {
    devices_.reserve(settings.devices);
    for (uint32_t device = 0; device < settings.devices; ++device) {
        devices_.emplace_back(device);
    }
}

bool FleetSimulation::StartServers(std::string& error) {
    if (!broker_.Start() || !database_.Start() ||
        !database_.Query("CREATE DATABASE lum", "postgres").empty()) {
        error = "The servers do not start";
        return false;
    }
    Process setUp;
    setUp.Start({BinaryDirectory() + "/lumcollect", "--setup", "--database", database_.GetParameters(),
                 "--servers", broker_.GetUrl(), "--stream-megabytes", "8000", "--ack-wait", "5"},
                scratch_ / "setup.log");
    if (setUp.Wait() != 0) {
        error = ReadWholeFile(scratch_ / "setup.log");
        return false;
    }
    collectors_.resize(kCollectors);
    for (std::size_t index = 0; index < kCollectors; ++index) {
        StartCollector(index);
    }
    return true;
}

void FleetSimulation::StartCollector(std::size_t index) {
    collectors_[index] = std::make_unique<Process>();
    collectors_[index]->Start({BinaryDirectory() + "/lumcollect", "--database", database_.GetParameters(),
                               "--servers", broker_.GetUrl(), "--name", std::to_string(index), "--listen",
                               "127.0.0.1:" + std::to_string(FreePort())},
                              scratch_ / "collector.log");
}

void FleetSimulation::Plan(int64_t atMs, Kind kind, uint32_t device) {
    if (kind == Kind::kTry) {
        if (tryPlanned_[device]) {
            return;
        }
        tryPlanned_[device] = true;
    }
    events_.push({atMs, kind, device});
}

void FleetSimulation::PlanTurns() {
    const uint32_t places = settings_.connected;
    const uint32_t turns = (settings_.devices + places - 1) / places;
    const int64_t turnMs = spanMs_ / turns;
    for (uint32_t place = 0; place < places; ++place) {
        const int64_t phase = std::uniform_int_distribution<int64_t>(0, turnMs - 1)(random_);
        for (uint32_t turn = 0, device = place; device < settings_.devices; ++turn, device += places) {
            Plan(std::max<int64_t>(turn * turnMs - phase, 0), Kind::kSwitchOn, device);
            if (device + places < settings_.devices) {
                Plan((turn + 1) * turnMs - phase, Kind::kSwitchOff, device);
            }
        }
    }
    Plan(spanMs_ / 4, Kind::kKillCollector);
    report_.outageStartMs = spanMs_ / 2;
    report_.outageEndMs = report_.outageStartMs + settings_.outageMinutes * kMinuteMs;
    Plan(report_.outageStartMs, Kind::kOutageBegins);
    Plan(report_.outageEndMs, Kind::kOutageEnds);
}

bool FleetSimulation::Play(SimulationReport& report, std::string& error) {
    if (!StartServers(error)) {
        return false;
    }
    PlanTurns();
    realStartMs_ = SteadyMs();
    const int64_t startMs = realStartMs_;
    while (!events_.empty() && events_.top().atMs < spanMs_) {
        const Event event = events_.top();
        events_.pop();
        WaitUntil(event.atMs);
        if (!Handle(event, error)) {
            return false;
        }
    }
    report_.realSeconds = static_cast<double>(SteadyMs() - startMs) / 1'000;
    const bool emptied = EmptyOutboxes(error);
    report_.brokerBytes = std::max(report_.brokerBytes, broker_.GetProcess().PeakBytes());
    report = report_;
    return emptied;
}

void FleetSimulation::WaitUntil(int64_t atMs) {
    const int64_t untilMs = realStartMs_ + atMs / settings_.speed;
    constexpr int64_t longest = 20;
    Turn(0);
    for (int64_t left = untilMs - SteadyMs(); left > 0; left = untilMs - SteadyMs()) {
        Turn(static_cast<int>(std::min(left, longest)));
        nowMs_ = std::max(nowMs_, std::min(atMs, (SteadyMs() - realStartMs_) * settings_.speed));
    }
    nowMs_ = atMs;
}

void FleetSimulation::Turn(int waitMs) {
    loop_.Turn(waitMs);
    constexpr int64_t askEachMs = 1'000;
    if (SteadyMs() >= askAtRealMs_) {
        askAtRealMs_ = SteadyMs() + askEachMs;
        Ask();
    }
}

bool FleetSimulation::Handle(const Event& event, std::string& error) {
    switch (event.kind) {
        case Kind::kSwitchOn:
            SwitchOn(event.device);
            break;
        case Kind::kSwitchOff:
            loop_.Close(event.device);
            devices_[event.device].StopForwarder();
            break;
        case Kind::kMake:
            makePlanned_[event.device] = false;
            MakeBatch(event.device);
            break;
        case Kind::kTry:
            tryPlanned_[event.device] = false;
            TryToConnect(event.device);
            break;
        case Kind::kKillCollector:
            collectors_[0]->Kill();
            StartCollector(0);
            break;
        case Kind::kOutageBegins:
            report_.brokerBytes = broker_.GetProcess().PeakBytes();
            broker_.Kill();
            brokerIsThere_ = false;
            break;
        case Kind::kOutageEnds: {
            const int64_t before = SteadyMs();
            brokerIsThere_ = broker_.Start();
            realStartMs_ += SteadyMs() - before;  // its start takes no simulated time
            error = brokerIsThere_ ? "" : "The broker does not start again";
            return brokerIsThere_;
        }
    }
    return true;
}

void FleetSimulation::SwitchOn(uint32_t device) {
    SimulatedDevice& on = devices_[device];
    on.SetClock(random_);
    on.StartForwarder(forward_, random_(), nowMs_);
    const int64_t intervalMs = kHourMs / settings_.batchesPerHour;
    if (!makePlanned_[device] && nowMs_ < spanMs_) {
        makePlanned_[device] = true;
        Plan(nowMs_ + std::uniform_int_distribution<int64_t>(0, intervalMs)(random_), Kind::kMake, device);
    }
    TryToConnect(device);
}

void FleetSimulation::TryToConnect(uint32_t device) {
    SimulatedDevice& trying = devices_[device];
    if (!trying.IsOn() || loop_.IsConnected(device)) {
        return;
    }
    if (!brokerIsThere_ || !loop_.Connect(device, DeviceInbox(trying.GetName()))) {
        Plan(nowMs_ + trying.NextWait(), Kind::kTry, device);
        return;
    }
    if (nowMs_ >= report_.outageEndMs && nowMs_ < spanMs_) {
        report_.returns.push_back(nowMs_ - report_.outageEndMs);
    }
    Send(device);
}

void FleetSimulation::MakeBatch(uint32_t device) {
    SimulatedDevice& maker = devices_[device];
    if (!maker.IsOn()) {
        return;
    }
    maker.MakeBatch(nowMs_);
    ++report_.made;
    if (random_() % kRestoreEach == 0) {
        ++report_.restored;
        maker.RestoreOne(nowMs_);
    }
    if (random_() % kRestartEach == 0) {
        ++report_.restarts;
        maker.SetClock(random_);
        maker.StartForwarder(forward_, random_(), nowMs_);
        loop_.Close(device);
        TryToConnect(device);
    }
    makePlanned_[device] = true;
    Plan(nowMs_ + kHourMs / settings_.batchesPerHour, Kind::kMake, device);
    if (loop_.IsConnected(device)) {
        Send(device);
    }
}

void FleetSimulation::Send(uint32_t device) {
    SimulatedDevice& sender = devices_[device];
    std::vector<uint64_t> numbers;
    const std::vector<WireBatch> batches = sender.TakeToSend(nowMs_, SteadyMs(), numbers);
    for (std::size_t i = 0; i < batches.size(); ++i) {
        const BatchInfo info{
            {sender.GetName(), batches[i].digest}, batches[i].name, kLabel, "2026-11-21T01:10:25Z"};
        // Where the connection is broken, it is said to be lost in the next turn.
        static_cast<void>(loop_.Publish(device, BatchSubject(sender.GetName(), kLabel),
                                        AckSubject(sender.GetName(), numbers[i]), MakeHeaders(info),
                                        batches[i].content));
        ++report_.sent;
    }
}

void FleetSimulation::Take(uint32_t device, std::string_view subject, std::string_view data) {
    SimulatedDevice& taker = devices_[device];
    uint64_t number = 0;
    if (ParseAckSubject(subject, number)) {
        const nlohmann::json json = nlohmann::json::parse(data, nullptr, false);
        if (json.is_object() && json.contains("seq")) {
            taker.TakeAcknowledgement(number, json["seq"].get<uint64_t>(), SteadyMs());
        }
        return;
    }
    std::vector<ReceiptLine> lines;
    if (!ParseReceipt(data, lines)) {
        return;
    }
    bool again = false;
    for (const ReceiptLine& line : lines) {
        report_.rejected += line.fate == BatchFate::kRejected ? 1 : 0;
        again = again || line.fate == BatchFate::kMissing;
        if (const auto delivery = taker.Settle(line, SteadyMs()); delivery.has_value()) {
            report_.deliveries.push_back(*delivery);
        }
    }
    if (again) {
        Send(device);
    }
}

void FleetSimulation::Ask() {
    for (uint32_t device = 0; device < devices_.size(); ++device) {
        if (devices_[device].CountWaiting() == 0 || !devices_[device].IsOn() || !loop_.IsConnected(device)) {
            continue;
        }
        const std::vector<AskLine> questions = devices_[device].TakeQuestions(SteadyMs());
        if (!questions.empty()) {
            static_cast<void>(
                loop_.Publish(device, AskSubject(devices_[device].GetName()), "", {}, AskText(questions)));
        }
    }
}

bool FleetSimulation::EmptyOutboxes(std::string& error) {
    nowMs_ = spanMs_;
    constexpr int64_t patienceMs = 60'000;
    const int64_t untilMs = SteadyMs() + patienceMs;
    std::vector<uint32_t> rest;
    for (uint32_t device = 0; device < devices_.size(); ++device) {
        if (devices_[device].CountWaiting() > 0) {
            rest.push_back(device);
        } else {
            loop_.Close(device);
            devices_[device].StopForwarder();
        }
    }
    while (!rest.empty() && SteadyMs() < untilMs) {
        const std::size_t first = rest.size() - std::min<std::size_t>(rest.size(), settings_.connected);
        for (std::size_t i = first; i < rest.size(); ++i) {
            SimulatedDevice& device = devices_[rest[i]];
            if (!device.IsOn()) {
                SwitchOn(rest[i]);
            } else if (!loop_.IsConnected(rest[i])) {
                TryToConnect(rest[i]);
            }
            Turn(0);
        }
        Turn(1);
        rest.erase(std::remove_if(rest.begin(), rest.end(),
                                  [this](uint32_t device) {
                                      if (devices_[device].CountWaiting() > 0) {
                                          return false;
                                      }
                                      loop_.Close(device);
                                      devices_[device].StopForwarder();
                                      return true;
                                  }),
                   rest.end());
    }
    error = rest.empty() ? "" : std::to_string(rest.size()) + " devices could not empty their outboxes";
    return rest.empty();
}
