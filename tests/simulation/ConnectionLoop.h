#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

/// Thousands of connections to a broker on one thread: the client library speaks, and one epoll says which of
/// them has something to read. Everything belongs to the thread that calls Turn.
class ConnectionLoop {
public:
    /// Called for each message that came, with the owner that Connect was given.
    using Take = std::function<void(uint32_t owner, std::string_view subject, std::string_view data)>;
    /// Called once for a connection that broke; it is closed already.
    using Lost = std::function<void(uint32_t owner)>;

    ConnectionLoop(std::string url, Take take, Lost lost);
    ConnectionLoop(const ConnectionLoop&) = delete;
    ConnectionLoop& operator=(const ConnectionLoop&) = delete;
    ~ConnectionLoop();

    /// Connects for `owner`, which has no connection yet, and subscribes to `inbox`. False where nobody
    /// answers.
    [[nodiscard]] bool Connect(uint32_t owner, const std::string& inbox);
    [[nodiscard]] bool IsConnected(uint32_t owner) const { return connections_.count(owner) != 0; }
    [[nodiscard]] std::size_t CountConnections() const { return connections_.size(); }
    void Close(uint32_t owner);
    /// False where the connection is broken; Lost follows with the next turn.
    [[nodiscard]] bool Publish(uint32_t owner, const std::string& subject, const std::string& reply,
                               const std::vector<std::pair<std::string, std::string>>& headers,
                               std::string_view data);
    /// Handles what has come; waits up to `waitMs` for the first of it.
    void Turn(int waitMs);

    struct Connection;

private:
    void Read(uint32_t owner);

    const std::string url_;
    const Take take_;
    const Lost lost_;
    const int epoll_;
    std::unordered_map<uint32_t, std::unique_ptr<Connection>> connections_;
};
