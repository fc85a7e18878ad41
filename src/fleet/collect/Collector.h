#pragma once

#include <cstdint>
#include <future>
#include <map>
#include <string>
#include <vector>

#include "fleet/broker/Broker.h"
#include "fleet/broker/Stream.h"
#include "fleet/broker/StreamReader.h"
#include "fleet/collect/CollectSettings.h"
#include "fleet/collect/CollectState.h"
#include "fleet/collect/database/BatchStore.h"
#include "fleet/collect/database/Database.h"
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
    /// Messages that the stream has handed out, and what each of them says, in the same order.
    struct Fetched {
        std::vector<BrokerMessage> messages;
        std::vector<Incoming> batches;
        std::string error;
    };

    [[nodiscard]] bool ConnectDatabase();
    [[nodiscard]] bool ConnectBroker();
    /// Has the stream hand out again what a database that was restored from a backup has lost. False, with
    /// the reason in `error`, where the broker refuses.
    [[nodiscard]] bool RecoverLost(const StreamState& stream, std::string& error);
    void Work();
    /// What the stream has handed out, while the next is fetched and read on a thread beside this one. False
    /// where the stream cannot be read.
    [[nodiscard]] bool TakeFetched(Fetched& fetched);
    void FetchAhead();
    /// The work of that thread.
    [[nodiscard]] Fetched Fetch();
    /// Gives back what was fetched ahead.
    void ReturnFetched();
    void Store(Fetched& fetched);
    void Finish(const Fetched& fetched);
    void Count(const Incoming& batch);
    void SendReceipts(const std::vector<Incoming>& batches);
    void AnswerQuestions();
    /// False, with the reason in `error`, where the broker cannot be asked or told.
    [[nodiscard]] bool Answer(const BrokerMessage& question, std::string& error);
    /// Counts what is pending, and notices a stream that is gone.
    void LookAtStream();
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
    std::future<Fetched> ahead_;  ///< the only other user of reader_
    Backoff databaseRetry_;
    Backoff brokerRetry_;
    int64_t streamMadeNs_ = 0;
    int64_t lookAtMs_ = 0;      ///< of a clock that never jumps
    int64_t maintainAtMs_ = 0;  ///< of the same
    std::string lastError_;
};
