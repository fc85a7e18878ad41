#include "support/TcpProxy.h"

#include <algorithm>
#include <array>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kPollMs = 20;

sockaddr_in Loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

bool SendAll(int to, const char* bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t sent = send(to, bytes, count, MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        bytes += sent;
        count -= static_cast<std::size_t>(sent);
    }
    return true;
}

/// Takes what has come from `from` to `to`, at most `most` bytes; how many that were, -1 at its end.
ssize_t Forward(int from, int to, uint64_t most) {
    std::array<char, 4096> buffer{};
    const ssize_t count = recv(from, buffer.data(), std::min<uint64_t>(buffer.size(), most), 0);
    return count > 0 && SendAll(to, buffer.data(), static_cast<std::size_t>(count)) ? count : -1;
}

}  // namespace

TcpProxy::TcpProxy(int serverPort)
    : serverPort_(serverPort), listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = Loopback(0);
    socklen_t length = sizeof(address);
    constexpr int backlog = 16;
    if (bind(listener_, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
        listen(listener_, backlog) == 0 &&
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        port_ = ntohs(address.sin_port);
    }
    thread_ = std::thread([this] { Accept(); });
}

TcpProxy::~TcpProxy() {
    stop_ = true;
    thread_.join();
    close(listener_);
}

void TcpProxy::CutNext(int connections, Way way, uint64_t bytes) {
    way_ = way;
    bytes_ = bytes;
    left_ = connections;
}

void TcpProxy::Accept() {
    while (!stop_) {
        pollfd waiting{listener_, POLLIN, 0};
        if (poll(&waiting, 1, kPollMs) != 1) {
            continue;
        }
        const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client >= 0) {
            servers_.emplace_back([this, client] { Serve(client); });
        }
    }
    for (std::thread& server : servers_) {
        server.join();
    }
}

void TcpProxy::Serve(int client) {
    const bool isToBeCut = left_.fetch_sub(1) > 0;
    uint64_t left = isToBeCut ? bytes_.load() : UINT64_MAX;
    const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(serverPort_);
    bool open = connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    while (open && !stop_ && left > 0) {
        std::array<pollfd, 2> ends{{{client, POLLIN, 0}, {server, POLLIN, 0}}};
        if (poll(ends.data(), ends.size(), kPollMs) <= 0) {
            continue;
        }
        for (std::size_t from = 0; from < ends.size() && open && left > 0; ++from) {
            if (ends[from].revents == 0) {
                continue;
            }
            const bool isCounted = (way_ == Way::kToServer) == (from == 0);
            const ssize_t count = Forward(ends[from].fd, ends[1 - from].fd, isCounted ? left : UINT64_MAX);
            open = count > 0;
            left -= open && isCounted && isToBeCut ? static_cast<uint64_t>(count) : 0;
        }
    }
    cuts_ += left == 0 ? 1 : 0;
    close(server);
    close(client);
}
