#include <csignal>
#include <map>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fleet/broker/Stream.h"
#include "fleet/broker/StreamReader.h"
#include "support/FleetServers.h"
#include "support/TempDirectory.h"
#include "support/WaitFor.h"

namespace {

constexpr int64_t kAnyBytes = 4'000'000;
constexpr int64_t kWaitMs = 1'000;

/// A stream on a real server, and a reader of it.
class StreamReaderTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(server_.Start());
        BrokerSettings settings;
        settings.servers = server_.GetUrl();
        std::string error;
        ASSERT_TRUE(broker_.Connect(settings, error)) << error;
        ASSERT_TRUE(publisher_.Connect(settings, error)) << error;
        stream_.name = "S";
        stream_.subjects = "s.>";
        stream_.consumer = "readers";
        stream_.maxBytes = 100'000'000;
        bool made = false;
        ASSERT_TRUE(SetUpStream(broker_, stream_, made, error)) << error;
        ASSERT_TRUE(reader_.Open(broker_, stream_.name, stream_.consumer, error)) << error;
    }

    void Publish(int first, int count) {
        std::string error;
        for (int number = first; number < first + count; ++number) {
            ASSERT_TRUE(publisher_.Publish("s.x", "", {}, std::to_string(number), error)) << error;
        }
        ASSERT_TRUE(publisher_.Flush(30'000));
    }

    /// Fetches, counts what came by its content, and says how many messages it was.
    std::size_t Fetch(std::size_t limit, int64_t maxBytes = kAnyBytes) {
        std::vector<BrokerMessage> messages;
        std::string error;
        EXPECT_TRUE(reader_.Fetch(limit, maxBytes, kWaitMs, messages, error)) << error;
        for (const BrokerMessage& message : messages) {
            ++seen_[std::string(message.Data())];
            message.Acknowledge();
        }
        return messages.size();
    }

    /// Waits until the server has handed out `count` messages that nobody has acknowledged, and they are
    /// here.
    void WaitUntilHandedOut(int count) {
        const std::string wanted = "\"num_ack_pending\": " + std::to_string(count) + ",";
        ASSERT_TRUE(WaitFor([&] {
            return server_.Monitor("/jsz?consumers=1&streams=1&accounts=1").find(wanted) != std::string::npos;
        }));
        ASSERT_TRUE(broker_.Flush(30'000));
    }

    TempDirectory scratch_;
    BrokerServer server_{scratch_ / "broker", "n1"};
    StreamSettings stream_;
    Broker broker_;
    Broker publisher_;
    StreamReader reader_;
    std::map<std::string, int> seen_;
};

TEST_F(StreamReaderTest, GivesNoMoreThanWasAskedForWhereMessagesOfEarlierRequestsComeLate) {
    constexpr std::size_t limit = 200;
    constexpr int early = 150;
    constexpr int later = 200;
    Publish(0, early);
    server_.GetProcess().Signal(SIGSTOP);
    EXPECT_EQ(Fetch(limit), 0U);
    EXPECT_EQ(Fetch(limit), 0U);
    server_.GetProcess().Signal(SIGCONT);
    WaitUntilHandedOut(early);
    // The server still has places left of both requests, and fills them while the third one is under way.
    std::thread publishing([this] { Publish(early, later); });
    EXPECT_LE(Fetch(limit), limit);
    publishing.join();
    EXPECT_TRUE(WaitFor([&] {
        EXPECT_LE(Fetch(limit), limit);
        return seen_.size() == early + later;
    }));
    EXPECT_EQ(Fetch(limit), 0U);
    EXPECT_THAT(seen_, testing::Each(testing::Pair(testing::_, 1)));
}

TEST_F(StreamReaderTest, GivesWhatIsThereAsOftenAsThereIsSome) {
    Publish(0, 25);
    EXPECT_EQ(Fetch(10), 10U);
    EXPECT_EQ(Fetch(10), 10U);
    EXPECT_EQ(Fetch(10), 5U);
    EXPECT_EQ(Fetch(10), 0U);
    EXPECT_EQ(seen_.size(), 25U);
    // All that was acknowledged is done with.
    EXPECT_TRUE(WaitFor([&] {
        StreamState state;
        std::string error;
        return ReadStreamState(broker_, stream_.name, stream_.consumer, state, error) && state.pending == 0 &&
               state.doneSequence == 25;
    }));
}

TEST_F(StreamReaderTest, HandsBackAMessageThatThenComesAgain) {
    Publish(7, 2);
    std::vector<BrokerMessage> messages;
    std::string error;
    ASSERT_TRUE(reader_.Fetch(2, kAnyBytes, kWaitMs, messages, error)) << error;
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].Sequence(), 1U);
    EXPECT_EQ(messages[1].Sequence(), 2U);
    EXPECT_EQ(messages[0].Subject(), "s.x");
    messages[0].Acknowledge();
    messages[1].HandBack(1);
    EXPECT_EQ(Fetch(1), 1U);
    EXPECT_THAT(seen_, testing::ElementsAre(testing::Pair("8", 1)));
}

TEST_F(StreamReaderTest, StopsAtTheBytesThatWereAskedFor) {
    std::string error;
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(publisher_.Publish("s.x", "", {}, std::string(1'000, static_cast<char>('a' + i)), error));
    }
    ASSERT_TRUE(publisher_.Flush(30'000));
    const std::size_t first = Fetch(10, 4'000);
    EXPECT_GT(first, 0U);
    EXPECT_LE(first, 4U);
    EXPECT_TRUE(WaitFor([&] {
        EXPECT_LE(Fetch(10, 4'000), 4U);
        return seen_.size() == 10;
    }));
}

TEST_F(StreamReaderTest, GivesAMessageThatIsLargerThanAllAlone) {
    std::string error;
    ASSERT_TRUE(publisher_.Publish("s.x", "", {}, std::string(10'000, 'x'), error)) << error;
    Publish(0, 2);
    EXPECT_EQ(Fetch(10, 4'000), 1U);
    EXPECT_EQ(Fetch(10, 4'000), 2U);
}

TEST_F(StreamReaderTest, SaysThatTheConsumerWasTakenAway) {
    std::vector<BrokerMessage> messages;
    std::string error;
    std::thread deleting([this] {
        EXPECT_TRUE(WaitFor([this] {
            return server_.Monitor("/jsz?consumers=1&streams=1&accounts=1").find("\"num_waiting\": 1,") !=
                   std::string::npos;
        }));
        std::string ignored;
        EXPECT_TRUE(publisher_.Publish("$JS.API.CONSUMER.DELETE.S.readers", "", {}, "", ignored));
    });
    EXPECT_FALSE(reader_.Fetch(10, kAnyBytes, 60'000, messages, error));
    deleting.join();
    EXPECT_EQ(error, "Cannot fetch from the stream: 409 Consumer Deleted");
}

TEST_F(StreamReaderTest, MoreThanItHoldsIsDroppedAndTheStreamReadOn) {
    constexpr int more = 70'000;
    const std::string said = server_.Monitor("/connz?subs=1");
    std::string error;
    int inboxes = 0;
    for (std::size_t from = said.find("_INBOX."); from != std::string::npos;
         from = said.find("_INBOX.", from + 1)) {
        const std::string inbox = said.substr(from, said.find('*', from) - from);
        for (int i = 0; i < more; ++i) {
            ASSERT_TRUE(publisher_.Publish(inbox + "stray", "", {}, "", error)) << error;
        }
        ++inboxes;
    }
    ASSERT_GE(inboxes, 1) << said;
    Publish(0, 3);
    ASSERT_TRUE(broker_.Flush(30'000));
    EXPECT_TRUE(WaitFor([this] {
        static_cast<void>(Fetch(10));
        return seen_.size() == 3;
    }));
}

TEST_F(StreamReaderTest, NeedsAConnection) {
    Broker none;
    StreamReader reader;
    std::string error;
    EXPECT_FALSE(reader.Open(none, stream_.name, stream_.consumer, error));
    EXPECT_EQ(error.find("Cannot listen to the stream: "), 0U) << error;
}

TEST_F(StreamReaderTest, SaysWhyItCannotGiveAny) {
    std::vector<BrokerMessage> messages;
    std::string error;
    server_.Stop();
    EXPECT_FALSE(reader_.Fetch(10, kAnyBytes, kWaitMs, messages, error));
    EXPECT_NE(error, "");
}

}  // namespace
