#include "agent/ServiceManager.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"

void NotifyServiceManager(const char* state) {
    const char* const path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address = {};
    if (path == nullptr || (path[0] != '/' && path[0] != '@') ||
        std::strlen(path) >= sizeof(address.sun_path)) {
        return;
    }
    address.sun_family = AF_UNIX;
    const std::size_t length = std::strlen(path);
    std::memcpy(address.sun_path, path, length);
    if (path[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    static_cast<void>(::sendto(socket.Get(), state, std::strlen(state), MSG_NOSIGNAL | MSG_DONTWAIT,
                               reinterpret_cast<const sockaddr*>(&address), size));
}

void ExtendServiceTimeout(const LumString& phrase) {
    constexpr uint32_t microseconds = 60'000'000;
    LumString state;
    state.Printf("EXTEND_TIMEOUT_USEC=%u\nSTATUS=%S", microseconds, phrase);
    NotifyServiceManager(state.GetString());
}

std::optional<std::chrono::milliseconds> WatchdogPeriod() {
    const char* const period = std::getenv("WATCHDOG_USEC");
    const char* const process = std::getenv("WATCHDOG_PID");
    if (period == nullptr || (process != nullptr && std::to_string(::getpid()) != process)) {
        return std::nullopt;
    }
    const std::string_view text(period);
    int64_t microseconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), microseconds);
    if (error != std::errc() || end != text.data() + text.size() || microseconds <= 0) {
        return std::nullopt;
    }
    constexpr int64_t margin = 3;  // of three reports two may be late
    return std::chrono::milliseconds(std::max<int64_t>(microseconds / 1000 / margin, 1));
}
