#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "fleet/forward/ForwardSettings.h"
#include "fleet/forward/Ledger.h"
#include "fleet/service/Backoff.h"
#include "fleet/wire/Receipt.h"

/// A device of the simulation: what lies in its outbox, and the forwarder that runs while it is switched on.
/// The forwarder's parts are the product's own (Backoff, Ledger, the wire's texts); its loop, its files and
/// its clock are the simulation's.

/// One batch in an outbox. Its content is made of the device and the number, the same whenever it is asked
/// for.
struct SimulatedBatch {
    uint32_t number = 0;
    int64_t dueMs = 0;   ///< simulated time from which it could have been sent
    int64_t sentMs = 0;  ///< simulated time of its last sending
    int64_t sentRealMs = 0;
};

/// What goes over the wire for a batch.
struct WireBatch {
    std::string name;
    std::string digest;
    std::string content;
};

inline constexpr uint32_t kEventsOfBatch = 2;

/// How long a batch took from when it was due until the database held it: the device's own waiting in
/// simulated time, and in real time what the real servers took.
struct Delivery {
    int64_t atMs = 0;  ///< the simulated time at which it was sent, and what the servers took
    int64_t lagMs = 0;
};

class SimulatedDevice {
public:
    explicit SimulatedDevice(uint32_t index);

    [[nodiscard]] const std::string& GetName() const { return name_; }
    [[nodiscard]] uint32_t CountMade() const { return made_; }
    [[nodiscard]] std::size_t CountWaiting() const { return outbox_.size(); }

    void MakeBatch(int64_t nowMs);
    /// A batch that the database holds comes back into the outbox, as with a backup that was restored.
    void RestoreOne(int64_t nowMs);
    /// Sets the device's clock anew, wrong by minutes, and now and then by years.
    void SetClock(std::mt19937_64& random);

    /// The device is switched on, or its forwarder started again: it knows nothing of what it sent before.
    void StartForwarder(const ForwardSettings& settings, uint64_t seed, int64_t nowMs);
    void StopForwarder();
    [[nodiscard]] bool IsOn() const { return forwarder_.has_value(); }
    /// The wait before the next attempt to connect, in simulated milliseconds.
    [[nodiscard]] int64_t NextWait() { return forwarder_->retry.Next(); }
    /// The connection is gone.
    void LoseConnection() { forwarder_->ledger.ForgetUnacknowledged(); }

    /// The batches that are to be sent now, each noted as sent; `numbers` are those of their
    /// acknowledgements.
    [[nodiscard]] std::vector<WireBatch> TakeToSend(int64_t nowMs, int64_t realMs,
                                                    std::vector<uint64_t>& numbers);
    void TakeAcknowledgement(uint64_t number, uint64_t sequence, int64_t realMs);
    [[nodiscard]] std::vector<AskLine> TakeQuestions(int64_t realMs);
    /// What became of a batch. Its delivery where it has left the outbox now.
    [[nodiscard]] std::optional<Delivery> Settle(const ReceiptLine& line, int64_t realMs);

private:
    struct ForwarderParts {
        ForwarderParts(const ForwardSettings& settings, uint64_t seed)
            : retry(settings.retryFirstMs, settings.retryLastMs, seed),
              askAfterMs(settings.askAfterSeconds * 1'000) {}

        Backoff retry;
        Ledger ledger;
        int64_t askAfterMs;
        uint64_t nextNumber = 1;
    };

    [[nodiscard]] WireBatch MakeWireBatch(uint32_t number) const;

    const std::string name_;
    uint32_t made_ = 0;
    std::vector<int32_t> clocks_;  ///< how wrong the clock was when each batch was made, in seconds
    int32_t clock_ = 0;
    std::vector<SimulatedBatch> outbox_;
    std::optional<ForwarderParts> forwarder_;
};
