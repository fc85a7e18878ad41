#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fleet/broker/Stream.h"
#include "support/FleetServers.h"
#include "support/TempDirectory.h"
#include "support/WaitFor.h"

namespace {

using testing::StartsWith;

/// A real server, and a stream that is to be made there.
class StreamTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server_.Start());
        BrokerSettings settings;
        settings.servers = server_.GetUrl();
        std::string error;
        ASSERT_TRUE(broker_.Connect(settings, error)) << error;
        stream_.name = "S";
        stream_.subjects = "s.>";
        stream_.consumer = "readers";
        stream_.maxBytes = 100'000'000;
    }

    /// Why it could not be set up; empty where it was.
    std::string SetUpIn(Broker& broker) {
        std::string error;
        return SetUpStream(broker, stream_, made_, error) ? "" : error;
    }
    std::string StateOf(Broker& broker) {
        std::string error;
        return ReadStreamState(broker, stream_.name, stream_.consumer, state_, error) ? "" : error;
    }
    std::string Rewind(Broker& broker, uint64_t sequence = 1) {
        std::string error;
        return RewindConsumer(broker, stream_, sequence, error) ? "" : error;
    }

    TempDirectory scratch_;
    BrokerServer server_{scratch_ / "broker", "n1"};
    StreamSettings stream_;
    Broker broker_;
    StreamState state_;
    bool made_ = false;
};

TEST_F(StreamTest, IsMadeOnceAndThenBroughtInLine) {
    EXPECT_EQ(SetUpIn(broker_), "");
    EXPECT_TRUE(made_);
    stream_.maxBytes /= 2;
    EXPECT_EQ(SetUpIn(broker_), "");
    EXPECT_FALSE(made_);
    EXPECT_EQ(StateOf(broker_), "");
    EXPECT_EQ(state_.replicas, 1);
    EXPECT_EQ(state_.pending, 0U);
}

TEST_F(StreamTest, IsHandedOutAgainFromANumberOn) {
    ASSERT_EQ(SetUpIn(broker_), "");
    std::string error;
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(broker_.Publish("s.x", "", {}, "content", error)) << error;
    }
    ASSERT_TRUE(broker_.Flush(30'000));
    EXPECT_EQ(Rewind(broker_, 4), "");
    EXPECT_TRUE(WaitFor([this] { return StateOf(broker_).empty() && state_.pending == 2; }))
        << state_.pending;
    EXPECT_EQ(Rewind(broker_, 0), "");
    EXPECT_TRUE(WaitFor([this] { return StateOf(broker_).empty() && state_.pending == 5; }))
        << state_.pending;
}

TEST_F(StreamTest, NumbersItsOwnMessagesAlone) {
    std::string error;
    std::optional<BrokerMessage> message;
    ASSERT_TRUE(broker_.Subscribe("plain", "", 1'000, error)) << error;
    ASSERT_TRUE(broker_.Publish("plain", "", {}, "content", error)) << error;
    ASSERT_EQ(broker_.Receive(30'000, message), ReceiveResult::kMessage);
    EXPECT_EQ(message->Sequence(), 0U);
    message->Acknowledge();  // there is nothing to acknowledge
}

TEST_F(StreamTest, HasNoMoreCopiesThanThereAreServers) {
    stream_.replicas = 3;
    EXPECT_THAT(SetUpIn(broker_), StartsWith("Cannot make the stream S: "));
}

TEST_F(StreamTest, TakesNoSubjectsOfAnother) {
    ASSERT_EQ(SetUpIn(broker_), "");
    stream_.name = "T";
    stream_.subjects = "t.>";
    ASSERT_EQ(SetUpIn(broker_), "");
    stream_.subjects = "s.>";
    EXPECT_THAT(SetUpIn(broker_), StartsWith("Cannot change the stream T: "));
}

TEST_F(StreamTest, HasAConsumerWithANameThatTheServerTakes) {
    stream_.consumer = "a.b";
    EXPECT_THAT(SetUpIn(broker_), StartsWith("Cannot make the consumer a.b: "));
}

TEST_F(StreamTest, ThatIsNotThereIsSaid) {
    EXPECT_THAT(StateOf(broker_), StartsWith("Cannot ask for the stream S: "));
    EXPECT_THAT(Rewind(broker_), StartsWith("Cannot make the consumer readers: "));
}

TEST_F(StreamTest, OfAServerThatIsGoneIsNotThere) {
    ASSERT_EQ(SetUpIn(broker_), "");
    server_.Stop();
    ASSERT_TRUE(WaitFor([this] { return !broker_.IsConnected(); }));
    EXPECT_THAT(SetUpIn(broker_), StartsWith("Cannot "));
    EXPECT_THAT(StateOf(broker_), StartsWith("Cannot "));
    EXPECT_THAT(Rewind(broker_), StartsWith("Cannot "));
}

TEST_F(StreamTest, NeedsAConnection) {
    Broker none;
    for (const std::string& reason : {SetUpIn(none), StateOf(none), Rewind(none)}) {
        EXPECT_THAT(reason, StartsWith("Cannot use the broker's streams: "));
    }
}

}  // namespace
