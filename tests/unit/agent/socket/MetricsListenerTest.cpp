#include <string>

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "agent/socket/MetricsListener.h"

namespace {

/// The address that a socket listens at; of no family where it does not.
sockaddr_storage AddressOf(const FileDescriptor& listener) {
    sockaddr_storage address = {};
    socklen_t size = sizeof(address);
    EXPECT_EQ(::getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    return address;
}

TEST(MetricsListener, ListensOnThisMachineUnlessToldOtherwise) {
    LumString error;
    const FileDescriptor listener = OpenMetricsListener("0", error);
    ASSERT_TRUE(listener.IsOpen()) << error.GetString();
    const sockaddr_storage address = AddressOf(listener);
    ASSERT_EQ(address.ss_family, AF_INET);
    EXPECT_EQ(ntohl(reinterpret_cast<const sockaddr_in*>(&address)->sin_addr.s_addr), INADDR_LOOPBACK);
    const FileDescriptor open = OpenMetricsListener("0.0.0.0:0", error);
    ASSERT_TRUE(open.IsOpen()) << error.GetString();
    const sockaddr_storage any = AddressOf(open);
    EXPECT_EQ(reinterpret_cast<const sockaddr_in*>(&any)->sin_addr.s_addr, INADDR_ANY);
}

TEST(MetricsListener, TakesAnAddressOfEitherKind) {
    LumString error;
    const FileDescriptor listener = OpenMetricsListener("[::1]:0", error);
    if (!listener.IsOpen()) {
        GTEST_SKIP() << error.GetString();
    }
    EXPECT_EQ(AddressOf(listener).ss_family, AF_INET6);
}

TEST(MetricsListener, TakesNumbersAlone) {
    for (const char* const text : {"", ":", "127.0.0.1:", ":9464", "localhost:9464", "127.0.0.1:http", "x",
                                   "[]:9464", "127.0.0.1:99999"}) {
        LumString error;
        EXPECT_FALSE(OpenMetricsListener(text, error).IsOpen()) << text;
        EXPECT_EQ(error, (std::string("[Agent] MetricsListen is PORT or ADDRESS:PORT in numbers, not '") +
                          text + "'")
                             .c_str());
    }
}

TEST(MetricsListener, SaysThatAPortIsTaken) {
    LumString error;
    const FileDescriptor first = OpenMetricsListener("127.0.0.1:0", error);
    ASSERT_TRUE(first.IsOpen()) << error.GetString();
    const sockaddr_storage address = AddressOf(first);
    const std::string taken =
        "127.0.0.1:" + std::to_string(ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port));
    EXPECT_FALSE(OpenMetricsListener(LumString(std::string_view(taken)), error).IsOpen());
    EXPECT_EQ(error,
              ("Cannot listen for readers of metrics at " + taken + ": Address already in use").c_str());
}

}  // namespace
