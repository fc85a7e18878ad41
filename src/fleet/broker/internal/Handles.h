#pragma once

#include <memory>
#include <string>
#include <vector>

#include <nats/nats.h>

#include "fleet/broker/Broker.h"
#include "fleet/broker/internal/SocketLoop.h"

/// Owners of the client library's objects.

template <class Object, void (*kDestroy)(Object*)>
struct NatsDestroy {
    void operator()(Object* object) const noexcept { kDestroy(object); }
};
template <class Object, void (*kDestroy)(Object*)>
using NatsOwner = std::unique_ptr<Object, NatsDestroy<Object, kDestroy>>;

using NatsMessage = NatsOwner<natsMsg, natsMsg_Destroy>;
using NatsOptions = NatsOwner<natsOptions, natsOptions_Destroy>;
using NatsConnection = NatsOwner<natsConnection, natsConnection_Destroy>;
using NatsSubscription = NatsOwner<natsSubscription, natsSubscription_Destroy>;
using JetStream = NatsOwner<jsCtx, jsCtx_Destroy>;

struct BrokerMessage::Handle {
    NatsMessage message;
    /// Where the stream is told what became of a message of its own; null for any other message.
    natsConnection* connection = nullptr;

    void AnswerStream(const std::string& answer) const;
};

struct Broker::Handle {
    std::unique_ptr<SocketLoop> loop;  ///< null where the library's threads do its work
    /// With a loop: what was published since it sent last. The library frees messages on a thread of its own,
    /// which is woken once for all of these.
    std::vector<NatsMessage> published;
    NatsConnection connection;
    NatsSubscription subscription;

    /// The next message of the subscription; NATS_TIMEOUT where none comes within `timeoutMs`.
    [[nodiscard]] natsStatus Next(natsMsg*& message, int64_t timeoutMs);
};

/// "<what>: <the library's words for `status`>", and in brackets the library's last error, which says more,
/// where there is one.
[[nodiscard]] inline std::string NatsFailure(const std::string& what, natsStatus status) {
    std::string text = what + ": " + natsStatus_GetText(status);
    const char* const detail = nats_GetLastError(nullptr);
    return detail != nullptr && *detail != '\0' ? text.append(" (").append(detail).append(")") : text;
}
