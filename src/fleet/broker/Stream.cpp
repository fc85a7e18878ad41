#include "fleet/broker/Stream.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "fleet/broker/internal/Handles.h"

namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kMostReplicas = 3;

using StreamInfo = NatsOwner<jsStreamInfo, jsStreamInfo_Destroy>;
using ConsumerInfo = NatsOwner<jsConsumerInfo, jsConsumerInfo_Destroy>;

std::string StreamFailure(const std::string& what, natsStatus status) {
    const char* const detail = nats_GetLastError(nullptr);
    std::string text = NatsFailure(what, status);
    return detail != nullptr && *detail != '\0' ? text + " (" + detail + ")" : text;
}

bool OpenJetStream(Broker& broker, JetStream& context, std::string& error) {
    jsCtx* opened = nullptr;
    const natsStatus status = natsConnection_JetStream(&opened, broker.GetHandle().connection.get(), nullptr);
    context.reset(opened);
    if (status != NATS_OK) {
        error = StreamFailure("Cannot use the broker's streams", status);
    }
    return status == NATS_OK;
}

/// The configuration of the stream; `subject` must live as long as it.
jsStreamConfig StreamConfig(const StreamSettings& settings, const char** subject, int64_t replicas) {
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    config.Name = settings.name.c_str();
    config.Subjects = subject;
    config.SubjectsLen = 1;
    config.Storage = js_FileStorage;
    config.Retention = js_LimitsPolicy;
    config.Discard = js_DiscardOld;
    config.MaxBytes = settings.maxBytes;
    config.MaxAge = settings.maxAgeSeconds * kNsPerSecond;
    config.MaxMsgSize = settings.maxMessageBytes;
    config.MaxMsgsPerSubject = settings.maxMessagesOfSubject;
    config.Duplicates = settings.duplicateSeconds * kNsPerSecond;
    config.Replicas = replicas;
    return config;
}

jsConsumerConfig ReaderConfig(const StreamSettings& settings) {
    jsConsumerConfig config;
    jsConsumerConfig_Init(&config);
    config.Durable = settings.consumer.c_str();
    config.AckPolicy = js_AckExplicit;
    config.AckWait = settings.ackWaitSeconds * kNsPerSecond;
    config.MaxAckPending = settings.maxUnacknowledged;
    return config;
}

bool MakeConsumer(jsCtx* context, const StreamSettings& settings, jsConsumerConfig& config,
                  std::string& error) {
    jsConsumerInfo* info = nullptr;
    const natsStatus status =
        js_AddConsumer(&info, context, settings.name.c_str(), &config, nullptr, nullptr);
    const ConsumerInfo owner(info);
    if (status != NATS_OK) {
        error = StreamFailure("Cannot make the consumer " + settings.consumer, status);
    }
    return status == NATS_OK;
}

/// Makes the stream with as many replicas as the cluster takes.
bool MakeStream(jsCtx* context, const StreamSettings& settings, std::string& error) {
    const char* subject = settings.subjects.c_str();
    int64_t replicas = settings.replicas > 0 ? settings.replicas : kMostReplicas;
    for (;; --replicas) {
        jsStreamConfig config = StreamConfig(settings, &subject, replicas);
        const natsStatus status = js_AddStream(nullptr, context, &config, nullptr, nullptr);
        if (status == NATS_OK) {
            return true;
        }
        if (settings.replicas > 0 || replicas == 1) {
            error = StreamFailure("Cannot make the stream " + settings.name, status);
            return false;
        }
    }
}

using Clock = std::chrono::steady_clock;

/// What one call of Fetch takes: no more than `limit` messages, and none after about `maxBytes`.
class Catch {
public:
    Catch(std::vector<BrokerMessage>& messages, std::size_t limit, int64_t maxBytes)
        : messages_(messages), limit_(limit), maxBytes_(maxBytes) {}

    void Add(NatsMessage message, natsConnection* connection) {
        bytes_ += natsMsg_GetDataLength(message.get());
        ++count_;
        auto handle = std::make_unique<BrokerMessage::Handle>();
        handle->message = std::move(message);
        handle->connection = connection;
        messages_.emplace_back(std::move(handle));
    }
    [[nodiscard]] bool IsEmpty() const { return count_ == 0; }
    [[nodiscard]] bool IsFull() const { return count_ >= limit_ || bytes_ >= maxBytes_; }

private:
    std::vector<BrokerMessage>& messages_;
    const std::size_t limit_;
    const int64_t maxBytes_;
    std::size_t count_ = 0;
    int64_t bytes_ = 0;
};

/// How a request for messages stands.
enum class RequestState : uint8_t {
    kOpen,
    kDone,      ///< it brings no more
    kTooSmall,  ///< the next message alone has more bytes than it asked for
    kFailed,
};

std::string_view HeaderOf(natsMsg* message, const char* name) {
    const char* value = nullptr;
    return natsMsgHeader_Get(message, name, &value) == NATS_OK && value != nullptr ? std::string_view(value)
                                                                                   : std::string_view();
}

/// What the server says of a request in a message of no content.
RequestState StateIn(natsMsg* message, std::string& error) {
    const std::string_view status = HeaderOf(message, "Status");
    const std::string_view description = HeaderOf(message, "Description");
    if (status == "404" || status == "408") {
        return RequestState::kDone;
    }
    if (description == "Message Size Exceeds MaxBytes") {
        return RequestState::kTooSmall;
    }
    if (status == "100") {
        return RequestState::kOpen;  // it only says that it is there
    }
    error = "Cannot fetch from the stream: " + std::string(status) + " " + std::string(description);
    return RequestState::kFailed;
}

}  // namespace

bool SetUpStream(Broker& broker, const StreamSettings& settings, bool& made, std::string& error) {
    JetStream context;
    if (!OpenJetStream(broker, context, error)) {
        return false;
    }
    jsStreamInfo* found = nullptr;
    const natsStatus status =
        js_GetStreamInfo(&found, context.get(), settings.name.c_str(), nullptr, nullptr);
    const StreamInfo info(found);
    made = status == NATS_NOT_FOUND;
    if (status != NATS_OK && !made) {
        error = StreamFailure("Cannot ask for the stream " + settings.name, status);
        return false;
    }
    if (made) {
        if (!MakeStream(context.get(), settings, error)) {
            return false;
        }
    } else {
        const char* subject = settings.subjects.c_str();
        const int64_t replicas = settings.replicas > 0 ? settings.replicas : info->Config->Replicas;
        jsStreamConfig config = StreamConfig(settings, &subject, replicas);
        if (const natsStatus updated = js_UpdateStream(nullptr, context.get(), &config, nullptr, nullptr);
            updated != NATS_OK) {
            error = StreamFailure("Cannot change the stream " + settings.name, updated);
            return false;
        }
    }
    jsConsumerInfo* consumer = nullptr;
    const natsStatus known = js_GetConsumerInfo(&consumer, context.get(), settings.name.c_str(),
                                                settings.consumer.c_str(), nullptr, nullptr);
    const ConsumerInfo owner(consumer);
    jsConsumerConfig config = ReaderConfig(settings);
    return known == NATS_OK || MakeConsumer(context.get(), settings, config, error);
}

bool ReadStreamState(Broker& broker, const std::string& stream, const std::string& consumer,
                     StreamState& state, std::string& error) {
    JetStream context;
    if (!OpenJetStream(broker, context, error)) {
        return false;
    }
    jsStreamInfo* foundStream = nullptr;
    jsConsumerInfo* foundConsumer = nullptr;
    natsStatus status =
        js_GetConsumerInfo(&foundConsumer, context.get(), stream.c_str(), consumer.c_str(), nullptr, nullptr);
    const ConsumerInfo reader(foundConsumer);
    if (status == NATS_OK) {
        // Asked for last: its numbers are then not older than the consumer's.
        status = js_GetStreamInfo(&foundStream, context.get(), stream.c_str(), nullptr, nullptr);
    }
    const StreamInfo info(foundStream);
    if (status != NATS_OK) {
        error = StreamFailure("Cannot ask for the stream " + stream, status);
        return false;
    }
    state.firstSequence = info->State.FirstSeq;
    state.lastSequence = info->State.LastSeq;
    state.createdNs = info->Created;
    state.replicas = info->Config->Replicas;
    state.doneSequence = reader->AckFloor.Stream;
    state.pending = reader->NumPending + static_cast<uint64_t>(std::max<int64_t>(reader->NumAckPending, 0));
    return true;
}

bool RewindConsumer(Broker& broker, const StreamSettings& settings, uint64_t sequence, std::string& error) {
    JetStream context;
    if (!OpenJetStream(broker, context, error)) {
        return false;
    }
    const natsStatus status =
        js_DeleteConsumer(context.get(), settings.name.c_str(), settings.consumer.c_str(), nullptr, nullptr);
    if (status != NATS_OK && status != NATS_NOT_FOUND) {
        error = StreamFailure("Cannot take the consumer " + settings.consumer + " away", status);
        return false;
    }
    jsConsumerConfig config = ReaderConfig(settings);
    config.DeliverPolicy = js_DeliverByStartSequence;
    config.OptStartSeq = std::max<uint64_t>(sequence, 1);
    return MakeConsumer(context.get(), settings, config, error);
}

struct StreamReader::Handle {
    natsConnection* connection = nullptr;  ///< the broker's
    std::string nextSubject;               ///< where the consumer is asked for its next messages
    std::string inbox;  ///< they come to this and the number of the request that they are handed out for
    uint64_t lastRequest = 0;  ///< the number of the last one
    NatsSubscription subscription;

    [[nodiscard]] bool Subscribe(std::string& error);
    /// Asks for as many, within `waitMs`; without a bound on their bytes where `maxBytes` is 0.
    [[nodiscard]] bool Ask(std::size_t limit, int64_t maxBytes, int64_t waitMs, std::string& error);
    /// Takes what comes until `deadline`, for whatever request; ends early with the request `number`.
    [[nodiscard]] RequestState Take(uint64_t number, Clock::time_point deadline, Catch& caught,
                                    std::string& error);
    [[nodiscard]] RequestState AskAndTake(std::size_t limit, int64_t maxBytes, int64_t waitMs, Catch& caught,
                                          std::string& error);
};

bool StreamReader::Handle::Subscribe(std::string& error) {
    natsInbox* made = nullptr;
    natsSubscription* subscribed = nullptr;
    natsStatus status = natsInbox_Create(&made);
    const NatsOwner<natsInbox, natsInbox_Destroy> owner(made);
    if (status == NATS_OK) {
        inbox = std::string(made) + ".";
        status = natsConnection_SubscribeSync(&subscribed, connection, (inbox + "*").c_str());
        subscription.reset(subscribed);
    }
    if (status != NATS_OK) {
        error = StreamFailure("Cannot listen to the stream", status);
    }
    return status == NATS_OK;
}

bool StreamReader::Handle::Ask(std::size_t limit, int64_t maxBytes, int64_t waitMs, std::string& error) {
    // What is handed out at the last moment is here by the time that nobody waits for it any more.
    constexpr int64_t onItsWayMs = 10;
    const int64_t expiresMs = std::max(waitMs - onItsWayMs, int64_t{1});
    std::string text =
        R"({"batch":)" + std::to_string(limit) + R"(,"expires":)" + std::to_string(expiresMs * kNsPerMs);
    if (maxBytes > 0) {
        text += R"(,"max_bytes":)" + std::to_string(maxBytes);
    }
    text += "}";
    const std::string reply = inbox + std::to_string(++lastRequest);
    const natsStatus status = natsConnection_PublishRequest(connection, nextSubject.c_str(), reply.c_str(),
                                                            text.data(), static_cast<int>(text.size()));
    if (status != NATS_OK) {
        error = StreamFailure("Cannot ask the stream for messages", status);
    }
    return status == NATS_OK;
}

RequestState StreamReader::Handle::Take(uint64_t number, Clock::time_point deadline, Catch& caught,
                                        std::string& error) {
    const std::string ours = inbox + std::to_string(number);
    while (!caught.IsFull()) {
        const int64_t left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        natsMsg* received = nullptr;
        const natsStatus status =
            natsSubscription_NextMsg(&received, subscription.get(), std::max(left, int64_t{0}));
        NatsMessage message(received);
        if (status == NATS_TIMEOUT) {
            return RequestState::kOpen;
        }
        if (status == NATS_SLOW_CONSUMER) {
            continue;  // what was dropped is handed out again
        }
        if (status != NATS_OK) {
            error = StreamFailure("Cannot fetch from the stream", status);
            return RequestState::kFailed;
        }
        const std::string_view subject = natsMsg_GetSubject(received);
        if (!subject.starts_with(inbox)) {
            caught.Add(std::move(message), connection);  // under the subject that it was published on
        } else if (subject == ours) {
            if (const RequestState state = StateIn(received, error); state != RequestState::kOpen) {
                return state;
            }
        }
    }
    return RequestState::kOpen;
}

RequestState StreamReader::Handle::AskAndTake(std::size_t limit, int64_t maxBytes, int64_t waitMs,
                                              Catch& caught, std::string& error) {
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(waitMs);
    return Ask(limit, maxBytes, waitMs, error) ? Take(lastRequest, deadline, caught, error)
                                               : RequestState::kFailed;
}

StreamReader::StreamReader() = default;
StreamReader::~StreamReader() = default;

bool StreamReader::Open(Broker& broker, const std::string& stream, const std::string& consumer,
                        std::string& error) {
    auto handle = std::make_unique<Handle>();
    handle->connection = broker.GetHandle().connection.get();
    handle->nextSubject = "$JS.API.CONSUMER.MSG.NEXT." + stream + "." + consumer;
    if (!handle->Subscribe(error)) {
        return false;
    }
    handle_ = std::move(handle);
    return true;
}

void StreamReader::Close() {
    handle_.reset();
}

bool StreamReader::Fetch(std::size_t limit, int64_t maxBytes, int64_t waitMs,
                         std::vector<BrokerMessage>& messages, std::string& error) {
    // The client library's own fetch is not used: its version 3.4 puts more messages into its list than were
    // asked for, and beyond the list's end, where some of an earlier request are there when it begins.
    constexpr uint64_t noRequest = 0;
    constexpr int64_t anyBytes = 0;
    Catch caught(messages, limit, maxBytes);
    std::string reason;
    RequestState state = handle_->Take(noRequest, Clock::now(), caught, reason);
    if (state == RequestState::kOpen && caught.IsEmpty()) {
        state = handle_->AskAndTake(limit, maxBytes, waitMs, caught, reason);
    }
    if (state == RequestState::kTooSmall && caught.IsEmpty()) {
        state = handle_->AskAndTake(1, anyBytes, waitMs, caught, reason);
    }
    // A failure that lasts is met again by the next call.
    const bool failed = state == RequestState::kFailed && caught.IsEmpty();
    if (failed) {
        error = reason;
    }
    return !failed;
}
