#include <chrono>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "agent/ServiceManager.h"
#include "host/file/FileDescriptor.h"
#include "support/TempDirectory.h"

namespace {

/// A service manager's end of the conversation.
class ServiceManagerSocket : public testing::Test {
protected:
    ~ServiceManagerSocket() override { ::unsetenv("NOTIFY_SOCKET"); }

    void Listen(const std::string& name) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, name.data(), name.size());
        if (name[0] == '@') {
            address.sun_path[0] = '\0';
        }
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        ASSERT_EQ(::bind(socket_.Get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
        ::setenv("NOTIFY_SOCKET", name.c_str(), 1);
    }
    [[nodiscard]] std::string Receive() const {
        char buffer[64];
        const ssize_t length = ::recv(socket_.Get(), buffer, sizeof(buffer), MSG_DONTWAIT);
        return length < 0 ? "nothing" : std::string(buffer, static_cast<std::size_t>(length));
    }

    TempDirectory scratch_;
    FileDescriptor socket_{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

TEST_F(ServiceManagerSocket, HearsOfTheState) {
    Listen(scratch_ / "notify");
    NotifyServiceManager("READY=1");
    EXPECT_EQ(Receive(), "READY=1");
}

TEST_F(ServiceManagerSocket, MayHaveAnAbstractAddress) {
    Listen("@lum" + (scratch_ / "notify"));
    NotifyServiceManager("STOPPING=1");
    EXPECT_EQ(Receive(), "STOPPING=1");
}

TEST_F(ServiceManagerSocket, IsNotNeeded) {
    NotifyServiceManager("READY=1");
    for (const std::string& wrong :
         {std::string("relative"), std::string(), "/" + std::string(200, 'x'), scratch_ / "nobody"}) {
        ::setenv("NOTIFY_SOCKET", wrong.c_str(), 1);
        NotifyServiceManager("READY=1");
    }
}

TEST_F(ServiceManagerSocket, HearsThatAStartTakesLonger) {
    Listen(scratch_ / "notify");
    ExtendServiceTimeout("reading");
    EXPECT_EQ(Receive(), "EXTEND_TIMEOUT_USEC=60000000\nSTATUS=reading");
}

/// What the service manager says of its watchdog.
class ServiceManagerWatchdog : public testing::Test {
protected:
    ~ServiceManagerWatchdog() override {
        ::unsetenv("WATCHDOG_USEC");
        ::unsetenv("WATCHDOG_PID");
    }
    /// The period in milliseconds, -1 for none.
    static int64_t PeriodWith(const char* microseconds) {
        ::setenv("WATCHDOG_USEC", microseconds, 1);
        return WatchdogPeriod().value_or(std::chrono::milliseconds(-1)).count();
    }
};

TEST_F(ServiceManagerWatchdog, IsFedThreeTimesAPeriod) {
    EXPECT_EQ(WatchdogPeriod(), std::nullopt);
    EXPECT_EQ(PeriodWith("30000000"), 10'000);
    EXPECT_EQ(PeriodWith("1"), 1);
}

TEST_F(ServiceManagerWatchdog, IsNotFedWhereThePeriodMakesNoSense) {
    for (const char* const wrong : {"", "x", "1s", "0", "-30000000", "99999999999999999999"}) {
        EXPECT_EQ(PeriodWith(wrong), -1) << wrong;
    }
}

TEST_F(ServiceManagerWatchdog, IsFedByTheProcessThatItNamesAlone) {
    ::setenv("WATCHDOG_PID", std::to_string(::getpid()).c_str(), 1);
    EXPECT_EQ(PeriodWith("3000000"), 1'000);
    ::setenv("WATCHDOG_PID", "1", 1);
    EXPECT_EQ(PeriodWith("3000000"), -1);
}

}  // namespace
