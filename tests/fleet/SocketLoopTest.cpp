#include <filesystem>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "fleet/broker/Broker.h"
#include "support/FleetServers.h"
#include "support/TempDirectory.h"
#include "support/WaitFor.h"

namespace {

/// A connection without threads of the client library, beside one with them, at a real broker.
class SocketLoop : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server_.Start());
        Connect(other_, "to.other");
        ASSERT_TRUE(other_.Flush(5'000));
        Connect(broker_, "to.us");
    }
    void Connect(Broker& broker, const std::string& subject) const {
        BrokerSettings settings;
        settings.servers = server_.GetUrl();
        std::string error;
        ASSERT_TRUE(broker.Connect(settings, error)) << error;
        ASSERT_TRUE(broker.Subscribe(subject, "", 10'000'000, error)) << error;
    }
    static void Send(Broker& broker, const std::string& subject, const std::string& data) {
        std::string error;
        ASSERT_TRUE(broker.Publish(subject, "", {{"Name", "value"}}, data, error)) << error;
    }
    /// What comes to `broker` next; empty where nothing does.
    static std::string Next(Broker& broker) {
        std::optional<BrokerMessage> message;
        EXPECT_TRUE(WaitFor([&] { return broker.Receive(10, message) == ReceiveResult::kMessage; }));
        return message.has_value() ? std::string(message->Data()) : std::string();
    }
    /// Some of them are many times as large as what is sent at once.
    static std::string Content(std::size_t number) {
        return std::string(number % 100 == 99 ? 900'000 : 1'000, static_cast<char>('a' + number % 26));
    }
    [[nodiscard]] static std::size_t CountDescriptors() {
        const std::filesystem::directory_iterator listing("/proc/self/fd");
        return static_cast<std::size_t>(std::distance(begin(listing), end(listing)));
    }

    TempDirectory scratch_;
    BrokerServer server_{scratch_ / "broker", "n1"};
    Broker other_;
    Broker broker_{BrokerThreads::kNone};
};

TEST_F(SocketLoop, MovesMessagesOfAllSizesInBothDirectionsInTheirOrder) {
    constexpr std::size_t count = 300;
    const auto exchange = [](Broker& from, Broker& to, const std::string& subject) {
        for (std::size_t i = 0; i < count; ++i) {
            Send(from, subject, Content(i));
        }
        EXPECT_TRUE(from.Flush(5'000));
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_EQ(Next(to), Content(i)) << i;
        }
    };
    exchange(broker_, other_, "to.other");
    exchange(other_, broker_, "to.us");
}

TEST_F(SocketLoop, FlushAndCloseSendWhatWaits) {
    Send(broker_, "to.other", "one");
    EXPECT_TRUE(broker_.Flush(5'000));
    Send(broker_, "to.other", "two");
    broker_.Close();
    EXPECT_FALSE(broker_.IsConnected());
    EXPECT_FALSE(broker_.Flush(5'000));
    EXPECT_EQ(Next(other_), "one");
    EXPECT_EQ(Next(other_), "two");
}

TEST_F(SocketLoop, NoticesThatTheBrokerIsGone) {
    server_.Kill();
    std::optional<BrokerMessage> message;
    EXPECT_TRUE(WaitFor([&] { return broker_.Receive(10, message) == ReceiveResult::kDisconnected; }));
    EXPECT_FALSE(broker_.IsConnected());
    std::string error;
    EXPECT_FALSE(broker_.Publish("to.other", "", {}, "x", error));
    EXPECT_NE(error.find("Cannot publish"), std::string::npos) << error;
}

TEST_F(SocketLoop, LeavesNoSocketOpen) {
    broker_.Close();
    const std::size_t before = CountDescriptors();
    for (int i = 0; i < 5; ++i) {
        Connect(broker_, "to.us");
        Send(broker_, "to.other", "x");
        broker_.Close();
    }
    EXPECT_EQ(CountDescriptors(), before);
    Connect(broker_, "to.us");
    server_.Kill();
    std::optional<BrokerMessage> message;
    EXPECT_TRUE(WaitFor([&] { return broker_.Receive(10, message) == ReceiveResult::kDisconnected; }));
    EXPECT_TRUE(WaitFor([&] { return other_.Receive(10, message) == ReceiveResult::kDisconnected; }));
    other_.Close();
    broker_.Close();
    // The library's thread closes that one's socket.
    EXPECT_TRUE(WaitFor([&] { return CountDescriptors() < before; }));
}

}  // namespace
