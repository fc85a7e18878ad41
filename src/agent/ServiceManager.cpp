#include "agent/ServiceManager.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>

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
