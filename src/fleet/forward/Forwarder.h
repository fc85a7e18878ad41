#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "fleet/broker/Broker.h"
#include "fleet/forward/EntryReader.h"
#include "fleet/forward/ForwardSettings.h"
#include "fleet/forward/ForwardState.h"
#include "fleet/forward/Ledger.h"
#include "fleet/forward/OutboxDirectory.h"
#include "fleet/service/Backoff.h"

/// Sends the entries of an outbox in the order of their names and removes each once a receipt says that the
/// database holds it. Nothing else ever deletes one: what cannot be sent is set aside. One thread runs it,
/// with a second one that reads ahead; `state` may be read by others meanwhile.
class Forwarder {
public:
    Forwarder(const ForwardSettings& settings, ForwardState& state);

    /// Works until the process is asked to stop.
    void Run();

private:
    [[nodiscard]] bool Connect();
    void Disconnect(const std::string& reason);
    /// One round of everything, about a quarter of a second when there is nothing to do.
    void Work();
    /// Handles what has come; waits up to `timeoutMs` for the first message.
    void TakeMessages(int64_t timeoutMs);
    void TakeAcknowledgement(uint64_t number, std::string_view data);
    void TakeReceipt(std::string_view data);
    void Settle(const ReceiptLine& line);
    void Confirm(const std::string& name);
    void SetAside(const std::string& name, const std::string& reason);
    void PublishWhatFits();
    [[nodiscard]] bool HasRoom() const;
    /// The next entry that is to be looked at; null for none.
    [[nodiscard]] ReadEntry* NextEntry();
    void ReadNextNames();
    /// Looks at the outbox from its first name on.
    void StartPass();
    /// False where the connection is lost by it.
    [[nodiscard]] bool PublishEntry(ReadEntry& read);
    /// Takes the entry's texts.
    void Send(OutboxEntry& entry);
    void Refused(uint64_t number, const std::string& reason, int64_t code);
    /// Publishes nothing for a while.
    void HoldBack(const std::string& reason);
    void AskForReceipts();
    void ReportState();
    void Complain(const std::string& reason);

    const ForwardSettings settings_;
    ForwardState& state_;
    const OutboxDirectory outbox_;
    EntryReader reader_;  ///< of entries to be published
    Broker broker_;
    Ledger ledger_;
    Backoff reconnect_;
    Backoff refused_;
    std::string cursor_;      ///< the last description that reader_ was given in this pass
    bool passDone_ = false;   ///< the pass has seen all names
    int64_t passStamp_ = -1;  ///< the outbox's stamp when the pass began
    std::set<std::string, std::less<>> staying_;  ///< descriptions of entries that are not to be sent
    std::string subject_;                         ///< of batches with the label label_
    std::optional<std::string> label_;
    uint64_t nextNumber_ = 1;
    int64_t publishNotBeforeMs_ = 0;
    int64_t rescanNotBeforeMs_ = 0;
    int64_t askNotBeforeMs_ = 0;
    int64_t reportNotBeforeMs_ = 0;
    std::string lastError_;
};
