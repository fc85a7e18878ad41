#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "fleet/broker/Broker.h"
#include "fleet/broker/Stream.h"
#include "fleet/collect/BatchStore.h"
#include "fleet/collect/CollectSettings.h"
#include "fleet/collect/CollectState.h"
#include "fleet/collect/Database.h"
#include "fleet/service/Backoff.h"

/// Takes batches from the stream, stores them, and tells devices so: each batch is acknowledged to the stream
/// and its device gets a receipt after the transaction that holds it was committed, never before. Any number
/// of collectors work side by side. One thread runs it; `state` may be read by others meanwhile.
class Collector {
public:
    Collector(const CollectSettings& settings, CollectState& state);

    /// Works until the process is asked to stop.
    void Run();

private:
    [[nodiscard]] bool ConnectDatabase();
    [[nodiscard]] bool ConnectBroker();
    /// Has the stream hand out again what a database that was restored from a backup has lost.
    [[nodiscard]] bool RecoverLost(const StreamState& stream);
    void Work();
    void StoreMessages(std::vector<BrokerMessage>& messages);
    void Finish(const std::vector<BrokerMessage>& messages, const std::vector<Incoming>& batches);
    void Count(const Incoming& batch);
    void SendReceipts(const std::vector<Incoming>& batches);
    void AnswerQuestions();
    [[nodiscard]] bool Answer(const BrokerMessage& question);
    void Maintain();
    void LoseDatabase(const std::string& reason);
    void LoseBroker(const std::string& reason);
    void Complain(const std::string& reason);

    const CollectSettings settings_;
    CollectState& state_;
    Database database_;
    BatchStore store_;
    Broker broker_;
    StreamReader reader_;
    Backoff databaseRetry_;
    Backoff brokerRetry_;
    int64_t streamMadeNs_ = 0;
    int64_t maintainAt_ = 0;  ///< seconds since 1970
    std::string lastError_;
};
