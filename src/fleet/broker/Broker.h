#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// How a connection to the broker is made.
struct BrokerSettings {
    /// nats://HOST:PORT or tls://HOST:PORT, several separated by commas. A plain one is refused for a host
    /// that is not this machine, unless a certificate of the authority is named: then all are encrypted.
    std::string servers = "nats://127.0.0.1:4222";
    std::string authorityFile;    ///< certificates that the servers' are verified with; empty: the system's
    std::string certificateFile;  ///< own certificate chain; with keyFile
    std::string keyFile;
    std::string credentialsFile;  ///< user and key as the account server writes them
    std::string user;
    std::string passwordFile;  ///< first line: the password of `user`
    std::string clientName;    ///< what the server's monitoring shows
};

/// The servers of `settings`, each with its scheme. False, with the reason in `error`, where one of them
/// would be spoken to in the clear over a network, or none is named.
[[nodiscard]] bool CheckServers(const BrokerSettings& settings, std::vector<std::string>& servers,
                                std::string& error);

/// One message that came. Owned by whoever received it; its views are valid as long as it lives.
class BrokerMessage {
public:
    struct Handle;

    explicit BrokerMessage(std::unique_ptr<Handle> handle);
    BrokerMessage(BrokerMessage&& other) noexcept;
    BrokerMessage& operator=(BrokerMessage&& other) noexcept;
    BrokerMessage(const BrokerMessage&) = delete;
    BrokerMessage& operator=(const BrokerMessage&) = delete;
    ~BrokerMessage();

    [[nodiscard]] std::string_view Subject() const;
    [[nodiscard]] std::string_view Data() const;
    /// Empty where there is no such header.
    [[nodiscard]] std::string_view Header(const char* name) const;
    /// The number that the stream gave a message of a StreamReader; 0 for any other message.
    [[nodiscard]] uint64_t Sequence() const;
    /// Tells the stream that a message of a StreamReader is done with, on the connection that it came on,
    /// which must be there still. What gets lost on the way comes again.
    void Acknowledge() const;
    /// Asks the stream, on the same connection, to hand it out again after `delayMs`.
    void HandBack(int64_t delayMs) const;

private:
    std::unique_ptr<Handle> handle_;
};

enum class ReceiveResult : uint8_t {
    kMessage,
    kNothing,
    kUnheard,  ///< a message that was published with a reply subject found nobody who takes it
    kDisconnected,
};

/// Whose threads move what a connection sends and receives.
enum class BrokerThreads : uint8_t {
    kLibrary,
    /// None but the owner's: Publish, Flush and Receive move what is to be moved, and nothing moves in
    /// between. Many small messages take less of the processor's time so. Not for a StreamReader, nor for
    /// SetUpStream.
    kNone,
};

/// A connection to the broker, and one subscription on it. A connection that broke stays broken: whoever owns
/// it decides when to make a new one. An object belongs to one thread at a time.
class Broker {
public:
    struct Handle;

    explicit Broker(BrokerThreads threads = BrokerThreads::kLibrary);
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;
    ~Broker();

    /// Connects, within 10 s a server. False, with the reason in `error`, where that fails.
    [[nodiscard]] bool Connect(const BrokerSettings& settings, std::string& error);
    void Close();
    [[nodiscard]] bool IsConnected() const;
    /// The largest content that the server takes, in bytes.
    [[nodiscard]] std::size_t MaxPayload() const;

    /// Hands a message to the connection; it may still be under way when this returns, and without threads it
    /// may wait to be sent with others. False, with the reason in `error`, where the connection is broken.
    /// `reply` may be empty.
    [[nodiscard]] bool Publish(const std::string& subject, const std::string& reply,
                               const std::vector<std::pair<std::string, std::string>>& headers,
                               std::string_view data, std::string& error);
    /// Waits until the server has seen everything that was published; false where it does not answer in time.
    /// Without threads it waits until the system has taken everything.
    [[nodiscard]] bool Flush(int64_t timeoutMs);

    /// From now on Receive gives the messages of `subject`; with `queue`, each to one of all that name it. Of
    /// what nobody takes, at most `maxBytes` are kept, and the rest is dropped.
    [[nodiscard]] bool Subscribe(const std::string& subject, const std::string& queue, int32_t maxBytes,
                                 std::string& error);
    /// The next message of the subscription; waits up to `timeoutMs` for it.
    [[nodiscard]] ReceiveResult Receive(int64_t timeoutMs, std::optional<BrokerMessage>& message);

    /// For the other classes of this folder.
    [[nodiscard]] Handle& GetHandle() const { return *handle_; }

private:
    const BrokerThreads threads_;
    std::unique_ptr<Handle> handle_;
};
