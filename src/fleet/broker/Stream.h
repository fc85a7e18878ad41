#pragma once

#include <cstdint>
#include <string>

#include "fleet/broker/Broker.h"

/// What a stream is made with.
struct StreamSettings {
    std::string name;
    std::string subjects;
    std::string consumer;  ///< the pull consumer that all its readers share
    int64_t maxBytes = 10'000'000'000;
    int64_t maxAgeSeconds = 7LL * 24 * 3600;
    int64_t duplicateSeconds = 120;  ///< for so long the stream itself drops a key that comes twice
    int32_t maxMessageBytes = 1'048'576;
    /// Of one subject, so of one device: its own oldest make room, and nobody else's wait after all of them.
    int64_t maxMessagesOfSubject = 10'000;
    int64_t ackWaitSeconds =
        60;  ///< what was handed out and not acknowledged in this time is handed out again
    int64_t maxUnacknowledged = 4096;
    int64_t replicas = 0;  ///< 0: as many as the cluster takes, up to 3
};

/// Where a stream and its consumer stand.
struct StreamState {
    uint64_t firstSequence = 0;
    uint64_t lastSequence = 0;
    /// Everything up to here was handed out and acknowledged.
    uint64_t doneSequence = 0;
    int64_t createdNs = 0;  ///< tells a stream from one of the same name that was deleted
    uint64_t pending = 0;   ///< not handed out yet
    int64_t replicas = 0;
};

/// Makes the stream and its consumer, or brings an existing one's limits in line. `made` says which. False,
/// with the reason in `error`, where the broker refuses.
[[nodiscard]] bool SetUpStream(Broker& broker, const StreamSettings& settings, bool& made,
                               std::string& error);

/// False, with the reason in `error`, where the stream or its consumer is not there or does not answer.
[[nodiscard]] bool ReadStreamState(Broker& broker, const std::string& stream, const std::string& consumer,
                                   StreamState& state, std::string& error);

/// Makes the consumer anew, so that it hands out everything from `sequence` on.
[[nodiscard]] bool RewindConsumer(Broker& broker, const StreamSettings& settings, uint64_t sequence,
                                  std::string& error);
