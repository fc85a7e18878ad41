#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "fleet/service/StatusServer.h"

/// How far a forwarder has come. Written by its thread, read by any.
struct ForwardState {
    std::atomic<bool> connected{false};
    std::atomic<bool> outboxReadable{true};
    std::atomic<bool> brokerTakes{true};  ///< false: the broker is there and refuses batches
    std::atomic<uint64_t> published{0};
    std::atomic<uint64_t> publishedBytes{0};
    std::atomic<uint64_t> acknowledged{0};
    std::atomic<uint64_t> confirmed{0};
    std::atomic<uint64_t> setAside{0};
    std::atomic<uint64_t> unconfirmed{0};
    std::atomic<uint64_t> underWay{0};
    std::atomic<uint64_t> connects{0};
    std::atomic<uint64_t> waiting{0};  ///< entries in the outbox, at the last look
    std::atomic<int64_t> waitingBytes{0};
    std::atomic<int64_t> oldest{0};
    std::atomic<int64_t> lastReceipt{0};  ///< seconds since 1970; 0: none yet
};

[[nodiscard]] HealthReport ForwardHealth(const ForwardState& state);
[[nodiscard]] std::string ForwardMetrics(const ForwardState& state);
/// The state as the JSON that other programs of this machine read.
[[nodiscard]] std::string ForwardStateJson(const ForwardState& state, const std::string& device,
                                           const std::string& lastError, int64_t now);
