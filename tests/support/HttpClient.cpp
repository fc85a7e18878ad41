#include "support/HttpClient.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

HttpClient::HttpClient(const std::string& socketPath)
    : descriptor_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof(address.sun_path) - 1);
    // A test that would wait for ever ends with a failure instead.
    const timeval patience{60, 0};
    ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    ::setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    if (::connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        ::close(descriptor_);
        descriptor_ = -1;
    }
}

HttpClient::HttpClient(HttpClient&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), received_(std::move(other.received_)) {}

HttpClient::~HttpClient() {
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

bool HttpClient::Send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool HttpClient::SendRequest(std::string_view method, std::string_view target, std::string_view body) const {
    std::string request = std::string(method) + " " + std::string(target) + " HTTP/1.1\r\nHost: agent\r\n";
    if (!body.empty() || method == "POST") {
        request += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    }
    return Send(request + "\r\n" + std::string(body));
}

void HttpClient::EndSending() const {
    ::shutdown(descriptor_, SHUT_WR);
}

bool HttpClient::Receive() {
    char buffer[65536];
    const ssize_t length = ::recv(descriptor_, buffer, sizeof(buffer), 0);
    if (length > 0) {
        received_.append(buffer, static_cast<std::size_t>(length));
    }
    return length > 0;
}

HttpReply HttpClient::ReadReply(bool hasBody) {
    HttpReply reply;
    std::size_t end = std::string::npos;
    while ((end = received_.find("\r\n\r\n")) == std::string::npos) {
        if (!Receive()) {
            return reply;
        }
    }
    reply.header = received_.substr(0, end + 2);
    received_.erase(0, end + 4);
    constexpr std::string_view field = "\r\nContent-Length: ";
    const std::size_t at = reply.header.find(field);
    const std::size_t length =
        hasBody && at != std::string::npos
            ? static_cast<std::size_t>(std::strtoull(reply.header.c_str() + at + field.size(), nullptr, 10))
            : 0;
    while (received_.size() < length) {
        if (!Receive()) {
            return reply;
        }
    }
    reply.body = received_.substr(0, length);
    received_.erase(0, length);
    reply.status = std::atoi(reply.header.c_str() + std::strlen("HTTP/1.1 "));
    return reply;
}

std::string HttpClient::ReadChunk() {
    std::size_t end = std::string::npos;
    while ((end = received_.find("\r\n")) == std::string::npos) {
        if (!Receive()) {
            return {};
        }
    }
    const std::size_t length = std::strtoull(received_.c_str(), nullptr, 16);
    while (received_.size() < end + length + 4) {
        if (!Receive()) {
            return {};
        }
    }
    std::string chunk = received_.substr(end + 2, length);
    received_.erase(0, end + length + 4);
    return chunk;
}

HttpReply HttpClient::Request(std::string_view method, std::string_view target, std::string_view body) {
    return SendRequest(method, target, body) ? ReadReply() : HttpReply();
}

bool HttpClient::WaitForEnd() {
    return received_.empty() && !Receive();
}

HttpReply HttpRequest(const std::string& socketPath, std::string_view method, std::string_view target,
                      std::string_view body) {
    HttpClient client(socketPath);
    return client.IsConnected() ? client.Request(method, target, body) : HttpReply();
}
