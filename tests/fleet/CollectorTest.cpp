#include <csignal>

#include <gmock/gmock.h>
#include <sys/syscall.h>

#include "fleet/FleetFixture.h"
#include "fleet/broker/Broker.h"
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

/// Collectors with real servers. The test plays a device, so that it chooses what is sent and asked.
class CollectorTest : public FleetFixture {
protected:
    void Connect() {
        BrokerSettings settings;
        settings.servers = brokerUrls_;
        std::string error;
        ASSERT_TRUE(client_.Connect(settings, error)) << error;
        ASSERT_TRUE(client_.Subscribe(DeviceInbox("alpha"), "", 1'000'000, error)) << error;
    }
    /// Sends a batch of device alpha; gives its digest.
    std::string Send(const std::string& payload) {
        const std::string digest = Sha256Hex(payload);
        const std::string label = "EventLogManagerEvents";
        Publish(BatchSubject("alpha", label), payload,
                MakeHeaders({{"alpha", digest}, "20261121T011025Z-1-E.cbor", label, "2026-11-21T01:10:25Z"}));
        return digest;
    }
    void Publish(const std::string& subject, const std::string& payload, const Headers& headers = {}) {
        std::string error;
        ASSERT_TRUE(client_.Publish(subject, "", headers, payload, error)) << error;
        ASSERT_TRUE(client_.Flush(5'000));
    }
    /// The lines of the next receipt.
    std::vector<ReceiptLine> WaitForReceipt() {
        std::optional<BrokerMessage> message;
        std::vector<ReceiptLine> lines;
        EXPECT_TRUE(WaitFor([&] { return client_.Receive(100, message) == ReceiveResult::kMessage; }));
        EXPECT_TRUE(message.has_value() && ParseReceipt(message->Data(), lines));
        return lines;
    }
    bool WaitForLog(const std::string& text) {
        return WaitFor([&] { return ReadCollectorLog().find(text) != std::string::npos; });
    }
    bool WaitForHealth(const std::string& text) {
        return WaitFor([&] { return GetCollector("/health").find(text) != std::string::npos; });
    }
    bool WaitForMetric(const std::string& line) {
        return WaitFor(
            [&] { return GetCollector("/metrics").find("\n" + line + "\n") != std::string::npos; });
    }

    Broker client_;
};

TEST_F(CollectorTest, TellsADeviceWhatBecameOfItsBatches) {
    StartServers();
    Connect();
    StartCollector();
    const std::string good = Send(MakeEvents({}, 1, 1).ToCbor());
    EXPECT_THAT(WaitForReceipt(), ElementsAre(ReceiptLine{BatchFate::kHeld, good, ""}));
    Send(MakeEvents({}, 1, 1).ToCbor());  // the stream may drop it, and must not store it twice
    const std::string bad = Send("garbage");
    std::vector<ReceiptLine> lines = WaitForReceipt();
    EXPECT_EQ(lines.back().fate, BatchFate::kRejected);
    EXPECT_EQ(lines.back().digest, bad);
    EXPECT_THAT(lines.back().reason, HasSubstr("it is not a container"));
    EXPECT_TRUE(WaitForLog("Rejected 20261121T011025Z-1-E.cbor of device 'alpha': it is not a container"));
    EXPECT_EQ(Query("SELECT count(*) FROM lum.\"event_Reading\""), "1\n");
}

TEST_F(CollectorTest, AnswersQuestionsByWhatTheDatabaseAndTheStreamKnow) {
    StartServers();
    Connect();
    StartCollector();
    const std::string held = Send(MakeEvents({}, 1, 1).ToCbor());
    WaitForReceipt();
    const std::string rejected = Send("garbage");
    WaitForReceipt();
    ASSERT_EQ(Query("DROP TABLE lum.\"event_Reading\" CASCADE"), "");
    const std::string waiting = Send(MakeEvents({}, 2, 1).ToCbor());
    EXPECT_TRUE(WaitForMetric("lumcollect_put_off_total 1"));
    EXPECT_TRUE(WaitForLog("Put off 20261121T011025Z-1-E.cbor of device 'alpha': ERROR:"));
    const std::string missing(kDigestLength, '0');
    // What is not a question is passed over.
    Publish(AskSubject("alpha"), "lum-ask 2\nwhat is the time\n");
    Publish("lum.ask.no*name", AskText({{held, 1}}));
    Publish(AskSubject("alpha"),
            AskText({{held, 1}, {rejected, 2}, {waiting, 3}, {missing, 4}, {missing, 1}}));
    const std::vector<ReceiptLine> lines = WaitForReceipt();
    std::vector<BatchFate> fates;
    for (const ReceiptLine& line : lines) {
        fates.push_back(line.fate);
    }
    EXPECT_THAT(fates, ElementsAre(BatchFate::kHeld, BatchFate::kRejected, BatchFate::kWaiting,
                                   BatchFate::kMissing, BatchFate::kMissing));
    EXPECT_TRUE(WaitForMetric("lumcollect_answers_total 1"));
    EXPECT_EQ(GetCollector("/health"), R"({"status":"ok"})");
}

TEST_F(CollectorTest, CountsWhatItDoes) {
    StartServers();
    Connect();
    StartCollector({"--batches", "1"});
    const std::string bytes = MakeEvents({}, 1, 3).ToCbor();
    Send(bytes);
    WaitForReceipt();
    Send("garbage");
    WaitForReceipt();
    const std::string size = std::to_string(bytes.size());
    for (const std::string& line :
         {std::string("lumcollect_stored_total 1"), std::string("lumcollect_events_total 3"),
          "lumcollect_bytes_total " + size, std::string("lumcollect_rejected_total 1"),
          std::string("lumcollect_transactions_total 2"), std::string("lumcollect_failures_total 0"),
          std::string("lumcollect_broker_connected 1"), std::string("lumcollect_database_connected 1")}) {
        EXPECT_TRUE(WaitForMetric(line)) << line;
    }
    scratch_.Write("metrics", GetCollector("/metrics"));
    EXPECT_EQ(RunShell("promtool check metrics 2>&1 < '" + scratch_ / "metrics" + "'"), "");
}

TEST_F(CollectorTest, SaysThatTheStreamIsGoneAndGoesOnOnceItIsThere) {
    StartServers();
    Connect();
    StartCollector();
    EXPECT_TRUE(WaitForHealth(R"({"status":"ok"})"));
    Publish("$JS.API.STREAM.DELETE.LUM", "");
    EXPECT_TRUE(WaitForHealth("The broker cannot be reached, or its stream cannot be read"));
    EXPECT_TRUE(WaitForLog("Broker: Cannot "));
    ASSERT_EQ(SetUpFleet(), 0);
    EXPECT_TRUE(WaitForHealth(R"({"status":"ok"})"));
    const std::string held = Send(MakeEvents({}, 1, 1).ToCbor());
    EXPECT_THAT(WaitForReceipt(), ElementsAre(ReceiptLine{BatchFate::kHeld, held, ""}));
}

TEST_F(CollectorTest, NoticesAStreamThatIsGoneAlsoWhereNothingSaysSo) {
    StartServers();
    Connect();
    StartCollector();
    EXPECT_TRUE(WaitForHealth(R"({"status":"ok"})"));
    // While it is stopped its request runs out, so that the stream has nobody to tell of its end.
    collectors_[0]->Signal(SIGSTOP);
    EXPECT_TRUE(WaitFor([this] {
        return broker_->Monitor("/jsz?consumers=1&streams=1&accounts=1").find("\"num_waiting\": 0,") !=
               std::string::npos;
    }));
    Publish("$JS.API.STREAM.DELETE.LUM", "");
    collectors_[0]->Signal(SIGCONT);
    EXPECT_TRUE(WaitForHealth("The broker cannot be reached, or its stream cannot be read"));
    EXPECT_TRUE(WaitForLog("Broker: Cannot ask for the stream LUM: "));
    EXPECT_EQ(ReadCollectorLog().find("Cannot fetch"), std::string::npos);
}

TEST_F(CollectorTest, SaysThatTheBrokerDoesNotLetItReadAgain) {
    broker_ = std::make_unique<BrokerServer>(
        scratch_ / "guarded", "n1",
        "authorization { users: [ { user: all, password: a }, { user: some, password: s,"
        " permissions: { publish: { deny: \"$JS.API.CONSUMER.DELETE.>\" } } } ] }");
    const std::string address = "@127.0.0.1:" + std::to_string(broker_->GetPort());
    brokerUrls_ = "nats://all:a" + address;
    StartServers();
    Connect();
    StartCollector();
    Send(MakeEvents({}, 1, 1).ToCbor());
    WaitForReceipt();
    EXPECT_EQ(collectors_[0]->Stop(), 0);
    // As a database is that was restored from a backup.
    ASSERT_EQ(Query("UPDATE lum.progress SET sequence = 0"), "");
    brokerUrls_ = "nats://some:s" + address;
    StartCollector();
    EXPECT_TRUE(WaitForLog("The database has lost what the stream handed out after number 0"));
    EXPECT_TRUE(WaitForLog("Broker: Cannot take the consumer "));
}

TEST_F(CollectorTest, SaysWhyItHasNoDatabase) {
    ASSERT_TRUE(broker_->Start());
    StartCollector();
    EXPECT_TRUE(WaitForHealth("The database cannot be reached, or cannot do its work"));
    EXPECT_TRUE(WaitForLog("Database: connection to server on socket \"" + database_->GetDirectory()));
    EXPECT_EQ(collectors_[0]->Stop(), 0);
}

TEST_F(CollectorTest, MaintenanceThatFailsIsSaidAndStopsNothing) {
    StartServers();
    Connect();
    ASSERT_EQ(Query("INSERT INTO lum.model VALUES ('Lost', 'event_Lost', 'v_lost', 'alpha')"), "");
    StartCollector();
    const std::string held = Send(MakeEvents({}, 1, 1).ToCbor());
    EXPECT_THAT(WaitForReceipt(), ElementsAre(ReceiptLine{BatchFate::kHeld, held, ""}));
    EXPECT_TRUE(WaitForLog("Maintenance: ERROR:"));
    EXPECT_TRUE(WaitForHealth(R"({"status":"ok"})"));
}

TEST_F(CollectorTest, SaysWhyItDoesNotStart) {
    ASSERT_TRUE(broker_->Start());
    const std::string program = BinaryDirectory() + "/lumcollect";
    const std::string taken = "127.0.0.1:" + std::to_string(broker_->GetPort());
    EXPECT_EQ(RunShell(program + " --listen " + taken + " 2>&1 || true"),
              "lumcollect: Cannot serve " + taken + ": Address already in use\n");
    Process process;
    process.Start({program}, scratch_ / "said",
                  [] { static_cast<void>(RefuseCall(SYS_epoll_create1, EMFILE)); });
    EXPECT_EQ(process.Wait(), 1);
    EXPECT_THAT(ReadWholeFile(scratch_ / "said"),
                testing::MatchesRegex("lumcollect: .*Too many open files\n"));
    EXPECT_EQ(RunShell(program + " --batches 0 2>/dev/null"), "status 2");
}

TEST_F(CollectorTest, SetUpSaysWhatItDidAndWhatItCouldNot) {
    StartServers();
    const auto said = [this] { return ReadWholeFile(scratch_ / "setup.log"); };
    EXPECT_THAT(said(), HasSubstr("Database: 2 steps taken, 2 in all\nStream LUM: made, replicas 1\n"));
    ASSERT_EQ(SetUpFleet(), 0);
    EXPECT_THAT(said(), HasSubstr("Database: 0 steps taken, 2 in all\nStream LUM: is there, replicas 1\n"));
    broker_->Stop();
    EXPECT_EQ(SetUpFleet(), 1);
    EXPECT_THAT(said(), HasSubstr("lumcollect: Broker: Cannot connect to nats://127.0.0.1:"));
    database_->Stop();
    EXPECT_EQ(SetUpFleet(), 1);
    EXPECT_THAT(said(), HasSubstr("lumcollect: Database: "));
}

}  // namespace
