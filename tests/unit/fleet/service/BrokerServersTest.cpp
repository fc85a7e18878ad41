#include <gtest/gtest.h>

#include "fleet/broker/Broker.h"

namespace {

std::string WhyNot(const std::string& servers, const std::string& authority = {}) {
    BrokerSettings settings;
    settings.servers = servers;
    settings.authorityFile = authority;
    std::vector<std::string> found;
    std::string error;
    return CheckServers(settings, found, error) ? "" : error;
}

TEST(BrokerServers, ArePlainOnThisMachineAlone) {
    EXPECT_EQ(WhyNot("nats://127.0.0.1:4222,nats://localhost:4223,nats://[::1]:4224"), "");
    EXPECT_EQ(WhyNot("tls://broker.example:4222"), "");
    EXPECT_EQ(WhyNot("nats://broker.example:4222", "/ca.pem"), "");
    const std::string clear =
        " would be spoken to in the clear, which is allowed on this machine alone; use tls://";
    EXPECT_EQ(WhyNot("nats://broker.example:4222"), "'nats://broker.example:4222'" + clear);
    EXPECT_EQ(WhyNot("nats://127.0.0.1:1,nats://localhost@10.0.0.1:4222"),
              "'nats://localhost@10.0.0.1:4222'" + clear);
    EXPECT_EQ(WhyNot("broker:4222"), "'broker:4222' is not nats://HOST:PORT or tls://HOST:PORT");
    EXPECT_EQ(WhyNot(""), "no server is named");
}

TEST(BrokerServers, AreLookedAtBeforeAConnectionIsMade) {
    Broker broker;
    BrokerSettings settings;
    settings.servers = "nats://broker.example:4222";
    std::string error;
    EXPECT_FALSE(broker.Connect(settings, error));
    EXPECT_NE(error.find("would be spoken to in the clear"), std::string::npos) << error;
    EXPECT_FALSE(broker.IsConnected());
    EXPECT_EQ(broker.MaxPayload(), 0U);
    EXPECT_FALSE(broker.Flush(1));
}

TEST(BrokerServers, AHostThatOnlyBeginsLikeThisMachineIsAnother) {
    EXPECT_NE(WhyNot("nats://127.example.com:4222"), "");
    EXPECT_NE(WhyNot("nats://localhost.example.com:4222"), "");
}

}  // namespace
