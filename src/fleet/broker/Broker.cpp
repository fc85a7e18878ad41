#include "fleet/broker/Broker.h"

#include <array>

#include "fleet/broker/internal/Certificate.h"
#include "fleet/broker/internal/Handles.h"
#include "host/file/LumFile.h"

namespace {

constexpr int64_t kConnectTimeoutMs = 10'000;
constexpr std::size_t kMaxPasswordBytes = 4096;
/// A server that does not answer this many pings, each after this time, is taken for gone.
constexpr int64_t kPingIntervalMs = 10'000;
constexpr int kMaxPingsOut = 2;
/// Without threads: how much is sent at once, and for how long a server may take nothing of it.
constexpr int kBytesAtOnce = 65'536;
constexpr int64_t kTakeWithinMs = 30'000;
constexpr int64_t kLastWordsMs = 100;

/// The host in scheme://[user@]host[:port]; brackets of a numeric address are dropped.
std::string_view HostOf(std::string_view url) {
    url.remove_prefix(url.find("://") + 3);
    if (const std::size_t at = url.rfind('@'); at != std::string_view::npos) {
        url.remove_prefix(at + 1);
    }
    if (url.starts_with('[')) {
        return url.substr(1, url.find(']') - 1);
    }
    return url.substr(0, url.find(':'));
}

bool IsLoopback(std::string_view host) {
    return host == "localhost" || host == "::1" ||
           (host.starts_with("127.") && host.find_first_not_of("0123456789.") == std::string_view::npos);
}

bool ReadPassword(const std::string& path, std::string& password, std::string& error) {
    LumString reason;
    if (!FileRead(LumString(std::string_view(path)), kMaxPasswordBytes, password, reason)) {
        error = path + ": " + std::string(reason.View());
        return false;
    }
    password.resize(std::min(password.find('\n'), password.size()));
    return true;
}

/// Carries on while everything went well, and keeps what failed first.
class Steps {
public:
    explicit Steps(std::string& error) : error_(error) {}

    Steps& Then(const std::string& what, natsStatus status) {
        if (good_ && status != NATS_OK) {
            good_ = false;
            error_ = NatsFailure(what, status);
        }
        return *this;
    }
    [[nodiscard]] bool IsGood() const { return good_; }

private:
    std::string& error_;
    bool good_ = true;
};

void SetTls(natsOptions* options, const BrokerSettings& settings, Steps& steps) {
    steps.Then("Cannot encrypt", natsOptions_SetSecure(options, true));
    if (!settings.authorityFile.empty()) {
        steps.Then(settings.authorityFile,
                   natsOptions_LoadCATrustedCertificates(options, settings.authorityFile.c_str()));
    }
    if (!settings.certificateFile.empty()) {
        steps.Then(settings.certificateFile,
                   natsOptions_LoadCertificatesChain(options, settings.certificateFile.c_str(),
                                                     settings.keyFile.c_str()));
    }
}

bool SetIdentity(natsOptions* options, const BrokerSettings& settings, Steps& steps, std::string& error) {
    if (!settings.credentialsFile.empty()) {
        steps.Then(settings.credentialsFile, natsOptions_SetUserCredentialsFromFiles(
                                                 options, settings.credentialsFile.c_str(), nullptr));
    }
    if (settings.user.empty()) {
        return true;
    }
    std::string password;
    if (!settings.passwordFile.empty() && !ReadPassword(settings.passwordFile, password, error)) {
        return false;
    }
    steps.Then("Cannot set the user",
               natsOptions_SetUserInfo(options, settings.user.c_str(), password.c_str()));
    return true;
}

/// Which servers are spoken to, how, and for how long they may be silent.
void SetServers(natsOptions* options, const std::vector<std::string>& servers, const BrokerSettings& settings,
                Steps& steps) {
    std::vector<const char*> urls;
    bool encrypted = !settings.authorityFile.empty();
    for (const std::string& server : servers) {
        urls.push_back(server.c_str());
        encrypted = encrypted || server.starts_with("tls://");
    }
    steps
        .Then("Cannot set the servers",
              natsOptions_SetServers(options, urls.data(), static_cast<int>(urls.size())))
        .Then("timeout", natsOptions_SetTimeout(options, kConnectTimeoutMs))
        .Then("name", natsOptions_SetName(options, settings.clientName.c_str()))
        .Then("reconnects", natsOptions_SetAllowReconnect(options, false))
        .Then("pings", natsOptions_SetPingInterval(options, kPingIntervalMs))
        .Then("pings", natsOptions_SetMaxPingsOut(options, kMaxPingsOut));
    if (encrypted) {
        SetTls(options, settings, steps);
    }
}

}  // namespace

bool CheckServers(const BrokerSettings& settings, std::vector<std::string>& servers, std::string& error) {
    std::vector<std::string> found;
    for (std::string_view rest = settings.servers; !rest.empty();) {
        const std::size_t comma = rest.find(',');
        const std::string_view server = rest.substr(0, comma);
        rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
        const bool encrypted = server.starts_with("tls://");
        if (!encrypted && !server.starts_with("nats://")) {
            error = "'" + std::string(server) + "' is not nats://HOST:PORT or tls://HOST:PORT";
            return false;
        }
        if (!encrypted && settings.authorityFile.empty() && !IsLoopback(HostOf(server))) {
            error = "'" + std::string(server) +
                    "' would be spoken to in the clear, which is allowed on this machine alone; use tls://";
            return false;
        }
        found.emplace_back(server);
    }
    if (found.empty()) {
        error = "no server is named";
        return false;
    }
    servers = std::move(found);
    return true;
}

BrokerMessage::BrokerMessage(std::unique_ptr<Handle> handle) : handle_(std::move(handle)) {}
BrokerMessage::BrokerMessage(BrokerMessage&& other) noexcept = default;
BrokerMessage& BrokerMessage::operator=(BrokerMessage&& other) noexcept = default;
BrokerMessage::~BrokerMessage() = default;

std::string_view BrokerMessage::Subject() const {
    return natsMsg_GetSubject(handle_->message.get());
}

std::string_view BrokerMessage::Data() const {
    natsMsg* const message = handle_->message.get();
    return {natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message))};
}

std::string_view BrokerMessage::Header(const char* name) const {
    const char* value = nullptr;
    return natsMsgHeader_Get(handle_->message.get(), name, &value) == NATS_OK && value != nullptr
               ? std::string_view(value)
               : std::string_view();
}

uint64_t BrokerMessage::Sequence() const {
    jsMsgMetaData* data = nullptr;
    if (natsMsg_GetMetaData(&data, handle_->message.get()) != NATS_OK) {
        return 0;
    }
    const uint64_t sequence = data->Sequence.Stream;
    jsMsgMetaData_Destroy(data);
    return sequence;
}

void BrokerMessage::Handle::AnswerStream(const std::string& answer) const {
    if (connection != nullptr) {
        // What gets lost here has the message handed out again by and by.
        static_cast<void>(
            natsConnection_PublishString(connection, natsMsg_GetReply(message.get()), answer.c_str()));
    }
}

void BrokerMessage::Acknowledge() const {
    handle_->AnswerStream("+ACK");
}

void BrokerMessage::HandBack(int64_t delayMs) const {
    constexpr int64_t nsPerMs = 1'000'000;
    handle_->AnswerStream(R"(-NAK {"delay": )" + std::to_string(delayMs * nsPerMs) + "}");
}

Broker::Broker(BrokerThreads threads) : threads_(threads), handle_(std::make_unique<Handle>()) {}

Broker::~Broker() {
    Close();
}

bool Broker::Connect(const BrokerSettings& settings, std::string& error) {
    Close();
    std::vector<std::string> servers;
    if (!CheckServers(settings, servers, error)) {
        return false;
    }
    natsOptions* created = nullptr;
    Steps steps(error);
    steps.Then("Cannot prepare a connection", natsOptions_Create(&created));
    const NatsOptions options(created);
    if (!steps.IsGood()) {
        return false;
    }
    SetServers(created, servers, settings, steps);
    if (threads_ == BrokerThreads::kNone) {
        handle_->loop = std::make_unique<SocketLoop>();
        steps.Then("Cannot prepare a connection", handle_->loop->AddTo(created));
    }
    if (!SetIdentity(created, settings, steps, error) || !steps.IsGood()) {
        return false;
    }
    natsConnection* connection = nullptr;
    steps.Then("Cannot connect to " + settings.servers, natsConnection_Connect(&connection, created));
    handle_->connection.reset(connection);
    // A server says no more to the holder of such a certificate than by ending the connection. It is not
    // looked at before: the clock that says so may be wrong.
    if (!steps.IsGood() && HasRunOut(settings.certificateFile)) {
        error += "; the certificate in " + settings.certificateFile + " has run out";
    }
    return steps.IsGood();
}

void Broker::Close() {
    handle_->subscription.reset();
    if (handle_->loop != nullptr && handle_->connection != nullptr) {
        // Closing waits for what is to be sent, which nobody else would do. What gets lost here comes again.
        static_cast<void>(handle_->loop->Send(handle_->connection.get(), kLastWordsMs));
    }
    handle_->connection.reset();
    handle_->loop.reset();
    handle_->published.clear();
}

bool Broker::IsConnected() const {
    return handle_->connection != nullptr &&
           natsConnection_Status(handle_->connection.get()) == NATS_CONN_STATUS_CONNECTED;
}

std::size_t Broker::MaxPayload() const {
    return handle_->connection != nullptr
               ? static_cast<std::size_t>(natsConnection_GetMaxPayload(handle_->connection.get()))
               : 0;
}

bool Broker::Publish(const std::string& subject, const std::string& reply,
                     const std::vector<std::pair<std::string, std::string>>& headers, std::string_view data,
                     std::string& error) {
    natsMsg* created = nullptr;
    Steps steps(error);
    steps.Then("Cannot make a message",
               natsMsg_Create(&created, subject.c_str(), reply.empty() ? nullptr : reply.c_str(), data.data(),
                              static_cast<int>(data.size())));
    NatsMessage message(created);
    for (const auto& [name, value] : headers) {
        if (steps.IsGood()) {
            steps.Then("Cannot set a header", natsMsgHeader_Set(created, name.c_str(), value.c_str()));
        }
    }
    if (steps.IsGood()) {
        steps.Then("Cannot publish", natsConnection_PublishMsg(handle_->connection.get(), created));
    }
    if (steps.IsGood() && handle_->loop != nullptr) {
        handle_->published.push_back(std::move(message));
        if (natsConnection_Buffered(handle_->connection.get()) >= kBytesAtOnce && !Flush(kTakeWithinMs)) {
            error = "The broker takes nothing";
            return false;
        }
    }
    return steps.IsGood();
}

bool Broker::Flush(int64_t timeoutMs) {
    natsConnection* const connection = handle_->connection.get();
    if (connection == nullptr) {
        return false;
    }
    handle_->published.clear();
    return handle_->loop != nullptr ? handle_->loop->Send(connection, timeoutMs)
                                    : natsConnection_FlushTimeout(connection, timeoutMs) == NATS_OK;
}

bool Broker::Subscribe(const std::string& subject, const std::string& queue, int32_t maxBytes,
                       std::string& error) {
    natsSubscription* subscription = nullptr;
    natsConnection* const connection = handle_->connection.get();
    Steps steps(error);
    steps.Then("Cannot subscribe to " + subject,
               queue.empty() ? natsConnection_SubscribeSync(&subscription, connection, subject.c_str())
                             : natsConnection_QueueSubscribeSync(&subscription, connection, subject.c_str(),
                                                                 queue.c_str()));
    handle_->subscription.reset(subscription);
    if (steps.IsGood()) {
        constexpr int anyNumber = -1;
        steps.Then("Cannot bound the subscription",
                   natsSubscription_SetPendingLimits(subscription, anyNumber, maxBytes));
    }
    return steps.IsGood();
}

natsStatus Broker::Handle::Next(natsMsg*& message, int64_t timeoutMs) {
    if (loop == nullptr) {
        return natsSubscription_NextMsg(&message, subscription.get(), timeoutMs);
    }
    const natsStatus status = natsSubscription_NextMsg(&message, subscription.get(), 0);
    if (status != NATS_TIMEOUT) {
        return status;
    }
    published.clear();
    loop->Turn(connection.get(), timeoutMs);
    return natsSubscription_NextMsg(&message, subscription.get(), 0);
}

ReceiveResult Broker::Receive(int64_t timeoutMs, std::optional<BrokerMessage>& message) {
    natsMsg* received = nullptr;
    const natsStatus status = handle_->Next(received, timeoutMs);
    if (status == NATS_OK) {
        auto handle = std::make_unique<BrokerMessage::Handle>();
        handle->message.reset(received);
        message.emplace(std::move(handle));
        return ReceiveResult::kMessage;
    }
    if (status == NATS_NO_RESPONDERS) {
        return ReceiveResult::kUnheard;
    }
    if (status == NATS_TIMEOUT || status == NATS_SLOW_CONSUMER) {
        return IsConnected() ? ReceiveResult::kNothing : ReceiveResult::kDisconnected;
    }
    return ReceiveResult::kDisconnected;
}
