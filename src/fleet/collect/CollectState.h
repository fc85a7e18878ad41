#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "fleet/service/StatusServer.h"

/// How far a collector has come. Written by its thread, read by any.
struct CollectState {
    std::atomic<bool> brokerConnected{false};
    std::atomic<bool> databaseConnected{false};
    std::atomic<uint64_t> stored{0};
    std::atomic<uint64_t> events{0};
    std::atomic<uint64_t> bytes{0};
    std::atomic<uint64_t> duplicates{0};
    std::atomic<uint64_t> rejected{0};
    std::atomic<uint64_t> putOff{0};
    std::atomic<uint64_t> transactions{0};
    std::atomic<uint64_t> failures{0};
    std::atomic<uint64_t> answers{0};
    std::atomic<uint64_t> pending{0};  ///< batches of the stream that nobody has stored yet, at the last look
    std::atomic<int64_t> lastCommit{0};  ///< seconds since 1970; 0: none yet
};

[[nodiscard]] HealthReport CollectHealth(const CollectState& state);
[[nodiscard]] std::string CollectMetrics(const CollectState& state);
