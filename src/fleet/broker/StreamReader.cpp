#include "fleet/broker/StreamReader.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "fleet/broker/internal/Handles.h"

namespace {

constexpr int64_t kNsPerMs = 1'000'000;

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
    error = "Cannot fetch from the stream: " + std::string(status) + " " + std::string(description);
    return RequestState::kFailed;
}

}  // namespace

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
                                    std::string& error) const;
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
        error = NatsFailure("Cannot listen to the stream", status);
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
        error = NatsFailure("Cannot ask the stream for messages", status);
    }
    return status == NATS_OK;
}

RequestState StreamReader::Handle::Take(uint64_t number, Clock::time_point deadline, Catch& caught,
                                        std::string& error) const {
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
            error = NatsFailure("Cannot fetch from the stream", status);
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
