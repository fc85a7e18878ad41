#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "fleet/broker/Broker.h"
#include "fleet/broker/Stream.h"
#include "fleet/collect/database/ModelTables.h"

/// What lumcollect runs with: its command line, and section [Collect] of the ini file below it.
struct CollectSettings {
    bool setUp = false;
    std::string database = "dbname=lum";
    std::string name;  ///< tells collectors apart; empty: the host's name
    std::string listen = "127.0.0.1:9462";
    BrokerSettings broker;
    StreamSettings stream;
    ModelLimits limits;
    int64_t batches = 200;           ///< in one transaction
    int64_t fetchBytes = 4'000'000;  ///< of messages in one transaction, about
    int64_t maxBatchBytes = 1'048'576;
    int64_t keepMonths = 0;  ///< 0: for ever
    int64_t retryFirstMs = 500;
    int64_t retryLastMs = 10'000;
};

/// Reads them. Nothing is returned where the program is to run; else its exit status, and what there is to
/// say was written.
[[nodiscard]] std::optional<int> ReadCollectSettings(int argc, const char* const* argv,
                                                     CollectSettings& settings);
