#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// What a program says of itself.
struct HealthReport {
    std::vector<std::string> reasons;  ///< why it cannot do its work; empty: it can
};

/// Serves GET /health and GET /metrics over HTTP on a port of the loopback interface, on a thread of its own.
/// A client that stalls is dropped after 10 s, and at most 16 are served at once.
class StatusServer {
public:
    /// Both are called on the server's thread.
    struct Sources {
        std::function<HealthReport()> health;
        std::function<std::string()> metrics;  ///< Prometheus text
    };

    StatusServer();
    StatusServer(const StatusServer&) = delete;
    StatusServer& operator=(const StatusServer&) = delete;
    /// Ends the thread.
    ~StatusServer();

    /// Opens `address`, HOST:PORT with a loopback address; port 0 takes a free one. False, with the reason in
    /// `error`, for any other address and where the port is taken.
    [[nodiscard]] bool Start(const std::string& address, Sources sources, std::string& error);
    /// The port that is served; 0 before Start.
    [[nodiscard]] int GetPort() const;

private:
    struct Impl;

    std::unique_ptr<Impl> impl_;
};
