#include "simulation/SimulatedDevice.h"

#include <algorithm>
#include <ctime>

#include "fleet/FleetFixture.h"
#include "fleet/wire/BatchHeaders.h"
#include "host/text/LumSha256.h"

namespace {

constexpr uint32_t kBatchesOfRelease = 5;
constexpr int32_t kYearSeconds = 365 * 24 * 3600;

std::string NameOf(uint32_t number) {
    return "20261121T011025Z-" + std::to_string(number) + "-EventLogManagerEvents.cbor";
}

/// The model as the device has it when it makes batch `number`: releases add a parameter, and change the type
/// of another one.
UploadedModel ModelOf(uint32_t number) {
    UploadedModel model{"Simulated", "1", {{"Number", "_INTEGER_"}, {"Size", "_INTEGER_"}}};
    const uint32_t release = number / kBatchesOfRelease;
    if (release > 0) {
        model.parameters.emplace_back("User", "_STRING_");
        model.checksum = "2";
    }
    if (release > 1) {
        model.parameters[1].second = "_DOUBLE_";
        model.checksum = "3";
    }
    return model;
}

}  // namespace

SimulatedDevice::SimulatedDevice(uint32_t index) : name_("device-" + std::to_string(index)) {}

void SimulatedDevice::MakeBatch(int64_t nowMs) {
    ++made_;
    clocks_.push_back(clock_);
    outbox_.push_back({made_, nowMs, 0, 0});
}

void SimulatedDevice::RestoreOne(int64_t nowMs) {
    const bool waits = std::any_of(outbox_.begin(), outbox_.end(),
                                   [](const SimulatedBatch& batch) { return batch.number == 1; });
    if (made_ > 0 && !waits) {
        outbox_.insert(outbox_.begin(), {1, nowMs, 0, 0});
    }
}

void SimulatedDevice::SetClock(std::mt19937_64& random) {
    constexpr int32_t usual = 300;
    constexpr int veryWrong = 100;  // one in so many
    clock_ = std::uniform_int_distribution<int32_t>(-usual, usual)(random);
    if (random() % veryWrong == 0) {
        clock_ += random() % 2 == 0 ? kYearSeconds : -6 * kYearSeconds;
    }
}

void SimulatedDevice::StartForwarder(const ForwardSettings& settings, uint64_t seed, int64_t nowMs) {
    forwarder_.emplace(settings, seed);
    for (SimulatedBatch& batch : outbox_) {
        batch.dueMs = nowMs;
    }
}

void SimulatedDevice::StopForwarder() {
    forwarder_.reset();
}

WireBatch SimulatedDevice::MakeWireBatch(uint32_t number) const {
    static const auto start = static_cast<int32_t>(std::time(nullptr));
    const auto first = static_cast<int32_t>(number * kEventsOfBatch);
    WireBatch batch;
    batch.name = NameOf(number);
    // An event's date is its number of seconds after the one that is given.
    batch.content =
        MakeEvents(ModelOf(number), first, kEventsOfBatch, start - first + clocks_[number - 1]).ToCbor();
    batch.digest = Sha256Hex(batch.content);
    return batch;
}

std::vector<WireBatch> SimulatedDevice::TakeToSend(int64_t nowMs, int64_t realMs,
                                                   std::vector<uint64_t>& numbers) {
    std::vector<WireBatch> batches;
    for (SimulatedBatch& waiting : outbox_) {
        const std::string name = NameOf(waiting.number);
        if (forwarder_->ledger.Holds(name)) {
            continue;
        }
        waiting.sentMs = nowMs;
        waiting.sentRealMs = realMs;
        batches.push_back(MakeWireBatch(waiting.number));
        numbers.push_back(forwarder_->nextNumber++);
        forwarder_->ledger.Add(name, batches.back().digest, batches.back().content.size(), numbers.back(),
                               realMs);
    }
    return batches;
}

void SimulatedDevice::TakeAcknowledgement(uint64_t number, uint64_t sequence, int64_t realMs) {
    forwarder_->ledger.Acknowledge(number, sequence, realMs + forwarder_->askAfterMs);
    forwarder_->retry.Reset();
}

std::vector<AskLine> SimulatedDevice::TakeQuestions(int64_t realMs) {
    return forwarder_->ledger.TakeQuestions(realMs, realMs + forwarder_->askAfterMs);
}

std::optional<Delivery> SimulatedDevice::Settle(const ReceiptLine& line, int64_t realMs) {
    for (const std::string& name : forwarder_->ledger.NamesOf(line.digest)) {
        if (line.fate == BatchFate::kWaiting) {
            continue;
        }
        forwarder_->ledger.Forget(name);
        if (line.fate != BatchFate::kHeld) {
            continue;
        }
        const auto number = static_cast<uint32_t>(RunningNumberOf(name));
        const auto found =
            std::find_if(outbox_.begin(), outbox_.end(),
                         [number](const SimulatedBatch& batch) { return batch.number == number; });
        if (found != outbox_.end()) {
            const int64_t servers = realMs - found->sentRealMs;
            const Delivery delivery{found->sentMs + servers, found->sentMs - found->dueMs + servers};
            outbox_.erase(found);
            return delivery;
        }
    }
    return std::nullopt;
}
