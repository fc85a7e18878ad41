#include <filesystem>

#include <gmock/gmock.h>
#include <sys/syscall.h>

#include "fleet/FleetFixture.h"
#include "fleet/broker/Stream.h"
#include "fleet/broker/StreamReader.h"
#include "fleet/wire/BatchHeaders.h"
#include "fleet/wire/Receipt.h"
#include "fleet/wire/Subjects.h"
#include "host/text/LumSha256.h"
#include "support/AgentProcess.h"
#include "support/RefusedCall.h"
#include "support/WaitFor.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// A forwarder with a real broker. The test plays the collector, so that it chooses what receipts say.
class ForwarderTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(server_.Start()) << ReadWholeFile(server_.GetDirectory() + "/log"); }
    void TearDown() override {
        if (HasFailure()) {
            std::cerr << device_.ReadLog();
        }
    }

    void Connect() {
        BrokerSettings settings;
        settings.servers = server_.GetUrl();
        std::string error;
        ASSERT_TRUE(broker_.Connect(settings, error)) << error;
        ASSERT_TRUE(broker_.Subscribe(kAskSubjects, "", 1'000'000, error)) << error;
    }
    void MakeStream(int32_t maxMessageBytes = 1'048'576) {
        Connect();
        StreamSettings stream;
        stream.name = kStreamName;
        stream.subjects = kBatchSubjects;
        stream.consumer = kConsumerName;
        stream.maxBytes = 100'000'000;
        stream.maxMessageBytes = maxMessageBytes;
        std::string error;
        bool made = false;
        ASSERT_TRUE(SetUpStream(broker_, stream, made, error)) << error;
        ASSERT_TRUE(reader_.Open(broker_, stream.name, stream.consumer, error)) << error;
    }
    void Start(const std::vector<std::string>& arguments = {}) { device_.Start(server_.GetUrl(), arguments); }

    /// The contents of the next `count` batches of the stream.
    std::vector<std::string> Take(std::size_t count) {
        std::vector<std::string> contents;
        EXPECT_TRUE(WaitFor([&] {
            std::vector<BrokerMessage> messages;
            std::string error;
            EXPECT_TRUE(reader_.Fetch(count - contents.size(), 10'000'000, 200, messages, error)) << error;
            for (const BrokerMessage& message : messages) {
                contents.emplace_back(message.Data());
                message.Acknowledge();
            }
            return contents.size() >= count;
        })) << contents.size();
        return contents;
    }
    void Say(BatchFate fate, const std::string& content, const std::string& reason = {}) {
        SayBytes(ReceiptText({{fate, Sha256Hex(content), reason}}));
    }
    void SayBytes(const std::string& text) {
        std::string error;
        ASSERT_TRUE(broker_.Publish(ReceiptSubject("alpha"), "", {}, text, error)) << error;
        ASSERT_TRUE(broker_.Flush(5'000));
    }
    void Drop(const std::string& content) { device_.DropBytes(content, "Note"); }
    bool WaitForEntries(std::size_t count) {
        return WaitFor([&] { return device_.CountEntries() == count; });
    }
    bool WaitForMetric(const std::string& name, const std::string& value) {
        return WaitFor([&] { return device_.GetMetric(name) == value; });
    }
    bool WaitForLog(const std::string& text) {
        return WaitFor([&] { return device_.ReadLog().find(text) != std::string::npos; });
    }
    bool WaitForHealth(const std::string& text) {
        return WaitFor([&] { return device_.Get("/health").find(text) != std::string::npos; });
    }

    TempDirectory scratch_;
    BrokerServer server_{scratch_ / "broker", "n1"};
    Broker broker_;
    StreamReader reader_;
    Device device_{"alpha", scratch_ / "device"};
};

TEST_F(ForwarderTest, SendsInTheOrderOfNamesAndRemovesWhatReceiptsName) {
    MakeStream();
    Drop("one");
    Drop("two");
    Drop("three");
    Start();
    EXPECT_THAT(Take(3), ElementsAre("one", "two", "three"));
    EXPECT_TRUE(WaitForMetric("lumforward_acknowledged_total", "3"));
    EXPECT_EQ(device_.CountEntries(), 3U);
    Say(BatchFate::kHeld, "two");
    EXPECT_TRUE(WaitForEntries(2));
    EXPECT_TRUE(WaitForMetric("lumforward_unconfirmed", "2"));
    EXPECT_EQ(device_.GetMetric("lumforward_confirmed_total"), "1");
    EXPECT_NE(device_.GetMetric("lumforward_last_receipt_seconds"), "0");
    // A receipt for what is not there changes nothing.
    Say(BatchFate::kHeld, "two");
    Say(BatchFate::kHeld, "four");
    Say(BatchFate::kHeld, "one");
    EXPECT_TRUE(WaitForEntries(1));
    EXPECT_EQ(device_.Get("/health"), R"({"status":"ok"})");
}

TEST_F(ForwarderTest, ItsMetricsAreAsTheyShouldBe) {
    Connect();
    Start();
    EXPECT_TRUE(WaitForMetric("lumforward_connected", "1"));
    scratch_.Write("metrics", device_.Get("/metrics"));
    EXPECT_EQ(RunShell("promtool check metrics 2>&1 < '" + scratch_ / "metrics" + "'"), "");
}

TEST_F(ForwarderTest, ABatchBearsWhatTheOutboxKnowsOfIt) {
    MakeStream();
    Drop("one");
    Start();
    std::vector<BrokerMessage> messages;
    std::string error;
    ASSERT_TRUE(WaitFor([&] { return reader_.Fetch(1, 10'000, 200, messages, error) && !messages.empty(); }));
    const BrokerMessage& message = messages[0];
    EXPECT_EQ(message.Subject(), BatchSubject("alpha", "Note"));
    EXPECT_EQ(message.Header("Nats-Msg-Id"), "alpha:" + Sha256Hex("one"));
    EXPECT_THAT(std::string(message.Header("Lum-Name")), testing::EndsWith("-1-Note.cbor"));
    EXPECT_EQ(message.Header("Lum-Label"), "Note");
    EXPECT_EQ(message.Header("Lum-Received-At").size(), 20U);
    EXPECT_EQ(message.Header("Lum-Format"), "1");
}

TEST_F(ForwarderTest, OneReceiptIsForAllEntriesOfTheSameContent) {
    MakeStream();
    Drop("same");
    Drop("same");
    Start();
    EXPECT_THAT(Take(1), ElementsAre("same"));  // the stream itself drops the second one
    EXPECT_TRUE(WaitForMetric("lumforward_acknowledged_total", "2"));
    Say(BatchFate::kHeld, "same");
    EXPECT_TRUE(WaitForEntries(0));
    EXPECT_EQ(device_.GetMetric("lumforward_confirmed_total"), "2");
}

TEST_F(ForwarderTest, WhatIsRefusedIsSetAsideWithTheReason) {
    MakeStream();
    Drop("bad");
    Start();
    Take(1);
    Say(BatchFate::kRejected, "bad", "it is not a container");
    EXPECT_TRUE(WaitForLog("-Note.cbor: refused, it is not a container"));
    EXPECT_TRUE(WaitForEntries(0));
    EXPECT_EQ(device_.CountSetAside(), 1U);
    EXPECT_TRUE(WaitForMetric("lumforward_set_aside_total", "1"));
}

TEST_F(ForwarderTest, WhatIsMissingIsSentAgainAndWhatWaitsIsNot) {
    MakeStream();
    Drop("waits");
    Drop("missing");
    Start();
    Take(2);
    EXPECT_TRUE(WaitForMetric("lumforward_acknowledged_total", "2"));
    Say(BatchFate::kWaiting, "waits");
    Say(BatchFate::kMissing, "missing");
    EXPECT_TRUE(WaitForMetric("lumforward_published_total", "3"));
    EXPECT_EQ(device_.CountEntries(), 2U);
}

TEST_F(ForwarderTest, AsksForReceiptsThatDoNotCome) {
    MakeStream();
    Drop("one");
    Start();
    std::optional<BrokerMessage> question;
    ASSERT_TRUE(WaitFor([&] { return broker_.Receive(100, question) == ReceiveResult::kMessage; }));
    EXPECT_EQ(question->Subject(), "lum.ask.alpha");
    EXPECT_EQ(question->Data(), AskText({{Sha256Hex("one"), 1}}));
    Say(BatchFate::kHeld, "one");
    EXPECT_TRUE(WaitForEntries(0));
}

TEST_F(ForwarderTest, AMessageThatIsNotAReceiptIsSaidOnce) {
    MakeStream();
    Drop("one");
    Start();
    Take(1);
    SayBytes("lum-receipt 2\nheld x\n");
    EXPECT_TRUE(WaitForLog("A message came that is not a receipt"));
    Say(BatchFate::kHeld, "one");
    EXPECT_TRUE(WaitForEntries(0));
}

TEST_F(ForwarderTest, LeavesNoMoreUnconfirmedThanItMay) {
    MakeStream();
    for (const char* const content : {"a", "b", "c", "d"}) {
        Drop(content);
    }
    Start({"--max-unconfirmed", "2"});
    EXPECT_THAT(Take(2), ElementsAre("a", "b"));
    EXPECT_TRUE(WaitForMetric("lumforward_unconfirmed", "2"));
    Say(BatchFate::kHeld, "a");
    EXPECT_THAT(Take(1), ElementsAre("c"));
    EXPECT_TRUE(WaitForMetric("lumforward_published_total", "3"));
}

TEST_F(ForwarderTest, WhatIsTooLargeForTheStreamOrTheBrokerIsSetAside) {
    MakeStream(2'000);
    Drop(std::string(5'000, 'x'));
    Drop(std::string(2'000'000, 'y'));
    Drop("small");
    Start();
    EXPECT_THAT(Take(1), ElementsAre("small"));
    EXPECT_TRUE(WaitFor([&] { return device_.CountSetAside() == 2; })) << device_.CountSetAside();
    EXPECT_TRUE(WaitForLog("-1-Note.cbor: it is larger than the stream takes"));
    EXPECT_TRUE(WaitForLog("-2-Note.cbor: it is larger than the broker takes"));
    EXPECT_EQ(device_.CountEntries(), 1U);
    EXPECT_EQ(device_.Get("/health"), R"({"status":"ok"})");
}

TEST_F(ForwarderTest, WaitsForAStreamAndSaysSo) {
    Connect();
    Drop("one");
    Start();
    EXPECT_TRUE(WaitForHealth("The broker refuses batches"));
    EXPECT_TRUE(WaitForLog("The broker refuses a batch: no stream takes it"));
    EXPECT_EQ(device_.CountEntries(), 1U);
    broker_.Close();
    MakeStream();
    EXPECT_THAT(Take(1), ElementsAre("one"));
    EXPECT_TRUE(WaitForLog("The broker takes batches again"));
    EXPECT_TRUE(WaitForHealth(R"({"status":"ok"})"));
}

TEST_F(ForwarderTest, SaysWhyItDoesNotStart) {
    const std::string program = BinaryDirectory() + "/lumforward";
    const std::string taken = "127.0.0.1:" + std::to_string(server_.GetPort());
    EXPECT_EQ(RunShell(program + " --device alpha --listen " + taken + " 2>&1 || true"),
              "lumforward: Cannot serve " + taken + ": Address already in use\n");
    Process process;
    process.Start({program, "--device", "alpha"}, scratch_ / "said",
                  [] { static_cast<void>(RefuseCall(SYS_epoll_create1, EMFILE)); });
    EXPECT_EQ(process.Wait(), 1);
    EXPECT_THAT(ReadWholeFile(scratch_ / "said"),
                testing::MatchesRegex("lumforward: .*Too many open files\n"));
    EXPECT_EQ(RunShell(program + " --window 0 2>/dev/null"), "status 2");
}

TEST_F(ForwarderTest, SpeaksAsAUserWithAPassword) {
    BrokerServer closed(scratch_ / "closed", "n2", "authorization { user: forwarder, password: secret }");
    ASSERT_TRUE(closed.Start());
    scratch_.Write("wrong", "guess\n");
    scratch_.Write("right", "secret\n");
    const auto start = [&](const std::string& file) {
        device_.Start(closed.GetUrl(), {"--user", "forwarder", "--password-file", scratch_ / file});
    };
    start("wrong");
    EXPECT_TRUE(WaitForLog("Authorization Violation")) << device_.ReadLog();
    EXPECT_TRUE(WaitForHealth("The broker cannot be reached"));
    device_.GetForwarder().Stop();
    start("missing");
    EXPECT_TRUE(WaitForLog("missing: No such file or directory"));
    device_.GetForwarder().Stop();
    start("right");
    EXPECT_TRUE(WaitForLog("Connected to the broker as device alpha"));
}

TEST_F(ForwarderTest, AnOutboxThatCannotBeReadIsReadOnceItCan) {
    MakeStream();
    Start();
    EXPECT_TRUE(WaitForHealth(R"({"status":"ok"})"));
    std::filesystem::rename(device_.GetOutbox(), scratch_ / "elsewhere");
    EXPECT_TRUE(WaitForHealth("The outbox cannot be read"));
    EXPECT_TRUE(WaitForLog("No such file or directory"));
    std::filesystem::rename(scratch_ / "elsewhere", device_.GetOutbox());
    Drop("one");
    EXPECT_THAT(Take(1), ElementsAre("one"));
    EXPECT_TRUE(WaitForHealth(R"({"status":"ok"})"));
}

TEST_F(ForwarderTest, AStateThatCannotBeWrittenStopsNothing) {
    MakeStream();
    Drop("one");
    const std::string path = scratch_ / "nowhere/state";
    Start({"--state-file", path});
    EXPECT_THAT(Take(1), ElementsAre("one"));
    EXPECT_TRUE(WaitForLog(path + ": "));
    Say(BatchFate::kHeld, "one");
    EXPECT_TRUE(WaitForEntries(0));
}

TEST_F(ForwarderTest, LeavesItsStateForOthersWhenItEnds) {
    MakeStream();
    Drop("one");
    Start();
    Take(1);
    Say(BatchFate::kHeld, "one");
    EXPECT_TRUE(WaitForEntries(0));
    EXPECT_EQ(device_.GetForwarder().Stop(), 0);
    const std::string state = ReadWholeFile(device_.GetOutbox() + "/.lumforward.json");
    for (const char* const part :
         {R"("Device": "alpha")", R"("Connected": false)", R"("Entries": 0)", R"("Confirmed": 1)"}) {
        EXPECT_THAT(state, HasSubstr(part));
    }
}

}  // namespace
