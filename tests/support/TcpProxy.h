#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

/// Stands between a client and a server of the loopback interface, and cuts connections where a test says so.
/// A connection that is cut is closed on both sides, in the middle of whatever was being sent.
class TcpProxy {
public:
    /// From where to where bytes are counted.
    enum class Way : uint8_t { kToServer, kToClient };

    explicit TcpProxy(int serverPort);
    TcpProxy(const TcpProxy&) = delete;
    TcpProxy& operator=(const TcpProxy&) = delete;
    /// Cuts what is left.
    ~TcpProxy();

    [[nodiscard]] int GetPort() const { return port_; }
    /// Each of the next `connections` that are made is cut after `bytes` have gone this way. To be called
    /// before the first of them.
    void CutNext(int connections, Way way, uint64_t bytes);
    /// How many have been cut.
    [[nodiscard]] int CountCuts() const { return cuts_; }

private:
    void Accept();
    void Serve(int client);

    const int serverPort_;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stop_{false};
    std::atomic<int> left_{0};
    std::atomic<int> cuts_{0};
    std::atomic<Way> way_{Way::kToServer};
    std::atomic<uint64_t> bytes_{0};
    std::vector<std::thread> servers_;  ///< touched by the accepting thread alone
    std::thread thread_;
};
