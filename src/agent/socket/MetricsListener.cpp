#include "agent/socket/MetricsListener.h"

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include <netdb.h>
#include <sys/socket.h>

#include "host/text/LumSystemError.h"

namespace {

struct FreeAddresses {
    void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};

/// The system itself would take 65616 for 80.
bool IsPort(std::string_view text) {
    uint16_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, number);
    return failure == std::errc() && stop == end;
}

/// Only numeric addresses: a name could lead to another machine tomorrow.
addrinfo* Resolve(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    std::string host(colon == std::string_view::npos ? "127.0.0.1" : text.substr(0, colon));
    const std::string port(colon == std::string_view::npos ? text : text.substr(colon + 1));
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    return !host.empty() && IsPort(port) && ::getaddrinfo(host.c_str(), port.c_str(), &hints, &found) == 0
               ? found
               : nullptr;
}

}  // namespace

FileDescriptor OpenMetricsListener(const LumString& address, LumString& error) {
    const std::unique_ptr<addrinfo, FreeAddresses> found(Resolve(address.View()));
    if (found == nullptr) {
        error.Printf("[Agent] MetricsListen is PORT or ADDRESS:PORT in numbers, not '%S'", address);
        return {};
    }
    FileDescriptor listener(
        ::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, found->ai_protocol));
    const int on = 1;
    if (!listener.IsOpen() || ::setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
        ::bind(listener.Get(), found->ai_addr, found->ai_addrlen) != 0 ||
        ::listen(listener.Get(), SOMAXCONN) != 0) {
        error.Printf("Cannot listen for readers of metrics at %S: %S", address, LumSystemErrorText());
        return {};
    }
    return listener;
}
