#pragma once

#include <string>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "support/WaitFor.h"

/// A service manager's end of a conversation with an agent.
class NotifySocket {
public:
    explicit NotifySocket(const std::string& path)
        : descriptor_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(::bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;
    ~NotifySocket() { ::close(descriptor_); }

    /// Everything that has come so far, a line each.
    [[nodiscard]] std::string Take() const {
        std::string all;
        char buffer[256];
        for (ssize_t length = 0; (length = ::recv(descriptor_, buffer, sizeof(buffer), MSG_DONTWAIT)) > 0;) {
            all.append(buffer, static_cast<std::size_t>(length)).append("\n");
        }
        return all;
    }
    [[nodiscard]] bool WaitFor(const std::string& part) {
        return ::WaitFor([&] { return (heard_ += Take()).find(part) != std::string::npos; });
    }
    [[nodiscard]] const std::string& Heard() const { return heard_; }
    void Forget() { heard_.clear(); }

private:
    int descriptor_;
    std::string heard_;
};
