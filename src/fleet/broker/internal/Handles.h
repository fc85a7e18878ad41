#pragma once

#include <memory>
#include <string>

#include <nats/nats.h>

#include "fleet/broker/Broker.h"

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
    NatsConnection connection;
    NatsSubscription subscription;
};

/// "<what>: <the library's words for `status`>", and in brackets the library's last error, which says more,
/// where there is one.
[[nodiscard]] inline std::string NatsFailure(const std::string& what, natsStatus status) {
    std::string text = what + ": " + natsStatus_GetText(status);
    const char* const detail = nats_GetLastError(nullptr);
    return detail != nullptr && *detail != '\0' ? text.append(" (").append(detail).append(")") : text;
}
