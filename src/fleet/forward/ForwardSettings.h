#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "fleet/broker/Broker.h"

/// What lumforward runs with: its command line, and section [Forward] of the ini file below it.
struct ForwardSettings {
    std::string outbox = "/var/lib/lumagent/FileStore/outbox";
    std::string device;     ///< empty: the machine's id
    std::string stateFile;  ///< empty: .lumforward.json in the outbox
    std::string listen = "127.0.0.1:9461";
    BrokerSettings broker;
    int64_t window = 500;            ///< batches under way that the broker has not acknowledged
    int64_t maxUnconfirmed = 2'000;  ///< batches that were sent and that no receipt has come for
    int64_t askAfterSeconds = 30;
    int64_t retryFirstMs = 1'000;
    int64_t retryLastMs = 300'000;
};

/// Reads them. Nothing is returned where the program is to run; else its exit status, and what there is to
/// say was written.
[[nodiscard]] std::optional<int> ReadForwardSettings(int argc, const char* const* argv,
                                                     ForwardSettings& settings);
