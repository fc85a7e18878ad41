#include <filesystem>

#include "fleet/FleetFixture.h"
#include "fleet/broker/Broker.h"
#include "fleet/wire/BatchHeaders.h"
#include "fleet/wire/Subjects.h"
#include "host/text/LumSha256.h"
#include "support/WaitFor.h"

namespace {

class FleetHostile : public FleetFixture {
protected:
    /// Publishes a batch as somebody who keeps no rules could; empty texts stand for what is right.
    void Publish(const std::string& payload, const std::string& subject = {}, const std::string& key = {},
                 const std::string& format = kWireFormat) {
        Broker broker;
        BrokerSettings settings;
        settings.servers = brokerUrls_;
        std::string error;
        ASSERT_TRUE(broker.Connect(settings, error)) << error;
        const Headers headers = {{kHeaderKey, key.empty() ? KeyText({"evil", Sha256Hex(payload)}) : key},
                                 {kHeaderName, "20261121T011025Z-1-x'; DROP TABLE lum.batch; --.cbor"},
                                 {kHeaderLabel, "EventLogManagerEvents"},
                                 {kHeaderReceivedAt, "2026-02-30T01:10:25Z"},
                                 {kHeaderFormat, format}};
        ASSERT_TRUE(broker.Publish(subject.empty() ? BatchSubject("evil", "EventLogManagerEvents") : subject,
                                   "", headers, payload, error))
            << error;
        ASSERT_TRUE(broker.Flush(5'000));
    }
    /// Publishes as many small batches that differ in nothing but their number.
    void Flood(int count) {
        Broker broker;
        BrokerSettings settings;
        settings.servers = brokerUrls_;
        std::string error;
        ASSERT_TRUE(broker.Connect(settings, error)) << error;
        const std::string label = "EventLogManagerEvents";
        for (int number = 0; number < count; ++number) {
            const std::string payload = std::to_string(number);
            const Headers headers =
                MakeHeaders({{"evil", Sha256Hex(payload)}, "x.cbor", label, "2026-11-21T01:10:25Z"});
            ASSERT_TRUE(broker.Publish(BatchSubject("evil", label), "", headers, payload, error)) << error;
        }
        ASSERT_TRUE(broker.Flush(30'000));
    }
    /// What a rejected batch was rejected for, as soon as there is one.
    std::string WaitForReason() {
        std::string reason;
        static_cast<void>(WaitFor([&] {
            reason = Query("SELECT device, reason FROM lum.rejected ORDER BY id DESC LIMIT 1");
            return !reason.empty();
        }));
        return reason;
    }
    static std::string Good() { return MakeEvents({}, 1, 2).ToCbor(); }
};

TEST_F(FleetHostile, GarbageIsKeptApartWithAReason) {
    StartServers();
    StartCollector();
    Publish("garbage");
    const std::string reason = WaitForReason();
    EXPECT_EQ(reason.rfind("evil|it is not a container: ", 0), 0U) << reason;
    EXPECT_EQ(Query("SELECT convert_from(content, 'UTF8'), bytes FROM lum.rejected"), "garbage|7\n");
    EXPECT_EQ(Query("SELECT device, batches, rejected FROM lum.device"), "evil|0|1\n");
}

TEST_F(FleetHostile, ABatchInTheNameOfAnotherDeviceIsNotThatDevices) {
    StartServers();
    StartCollector();
    Publish(Good(), BatchSubject("evil", "EventLogManagerEvents"), KeyText({"good", Sha256Hex(Good())}));
    EXPECT_EQ(WaitForReason(), "evil|it came from this device and its key names another one\n");
    EXPECT_EQ(Query("SELECT count(*) FROM lum.batch"), "0\n");
}

TEST_F(FleetHostile, AWrongDigestIsRejected) {
    StartServers();
    StartCollector();
    Publish(Good(), "", KeyText({"evil", std::string(64, '0')}));
    EXPECT_EQ(WaitForReason(), "evil|its digest is not that of its content\n");
}

TEST_F(FleetHostile, ABatchThatIsTooLargeOrOfAnotherFormatIsRejected) {
    StartServers();
    StartCollector({"--max-batch-bytes", "1024"});
    Publish(std::string(2000, 'x'));
    EXPECT_EQ(WaitForReason(), "evil|it has 2000 bytes, more than 1024\n");
    Publish(Good(), "", "", "2");
    EXPECT_EQ(WaitForRows("SELECT reason FROM lum.rejected ORDER BY id DESC LIMIT 1",
                          "its format is not one that is known\n"),
              "its format is not one that is known\n");
    Publish("other", "lum.v1.00.evil.EventLogManagerEvents");
    EXPECT_EQ(WaitForRows("SELECT reason FROM lum.rejected ORDER BY id DESC LIMIT 1",
                          "its subject is not that of a batch\n"),
              "its subject is not that of a batch\n");
}

TEST_F(FleetHostile, NamesThatAreSqlAreNamesAndNothingElse) {
    StartServers();
    StartCollector();
    UploadedModel model;
    model.name = "x\"; DROP TABLE lum.batch; --";
    model.parameters = {{"a\" integer); DROP TABLE lum.device; --", "_INTEGER_"},
                        {"event_time", "_TIMESTAMP_"},
                        {"ctid", "_STRING_"},
                        {"'", "_DOUBLE_"}};
    Publish(MakeEvents(model, 1, 1).ToCbor());
    EXPECT_EQ(WaitForRows("SELECT events, name FROM lum.batch",
                          "1|20261121T011025Z-1-x'; DROP TABLE lum.batch; --.cbor\n"),
              "1|20261121T011025Z-1-x'; DROP TABLE lum.batch; --.cbor\n");
    EXPECT_EQ(Query("SELECT \"a\"\" integer); DROP TABLE lum.device; --\", \"event_time_timestamptz\","
                    " \"ctid_text\", \"'\" FROM lum.\"event_x\"\"; DROP TABLE lum.batch; --\""),
              "1|1970-01-01 00:00:01+00|event 1|1.5\n");
    EXPECT_EQ(Query("SELECT count(*) FROM lum.rejected"), "0\n");
}

TEST_F(FleetHostile, ATypeThatChangesMakesAColumnAndTheViewShowsOne) {
    StartServers();
    StartCollector();
    Publish(MakeEvents({.parameters = {{"Value", "_INTEGER_"}}}, 1, 1).ToCbor());
    ASSERT_EQ(WaitForRows("SELECT count(*) FROM lum.batch", "1\n"), "1\n");
    Publish(MakeEvents({.checksum = "c2", .parameters = {{"Value", "_STRING_"}, {"More", "_BOOLEAN_"}}}, 2, 1)
                .ToCbor());
    ASSERT_EQ(WaitForRows("SELECT count(*) FROM lum.batch", "2\n"), "2\n");
    EXPECT_EQ(
        Query("SELECT \"Value\", \"Value_text\", \"More\" FROM lum.\"event_Reading\" ORDER BY event_time"),
        "1||\n|event 2|f\n");
    EXPECT_EQ(Query("SELECT value, more FROM lum.v_reading ORDER BY event_time"), "1|\nevent 2|f\n");
}

TEST_F(FleetHostile, TooManyColumnsAreRefusedAndNobodyElseIsHeldUp) {
    StartServers();
    StartCollector();
    UploadedModel wide;
    wide.parameters.clear();
    for (int i = 0; i < 10'000; ++i) {
        wide.parameters.emplace_back("P" + std::to_string(i), "_INTEGER_");
    }
    Publish(MakeEvents(wide, 1, 1).ToCbor());
    Device& device = AddDevice("good");
    device.DropEvents(1, 2);
    device.Start(brokerUrls_);
    EXPECT_EQ(WaitForReason(), "evil|its model has 10000 parameters, more than 1000\n");
    EXPECT_EQ(WaitForRows("SELECT device, events FROM lum.batch", "good|2\n"), "good|2\n");
    // A table that is there does not grow without end either.
    wide.parameters.resize(900);
    Publish(MakeEvents(wide, 1, 1).ToCbor());
    EXPECT_EQ(WaitForRows("SELECT reason FROM lum.rejected ORDER BY id DESC LIMIT 1",
                          "it asks for more columns than the table of its model may have\n"),
              "it asks for more columns than the table of its model may have\n");
}

TEST_F(FleetHostile, ADeviceIntroducesOnlySoManyModels) {
    StartServers();
    StartCollector({"--max-models-of-device", "2"});
    for (int i = 0; i < 4; ++i) {
        UploadedModel model;
        model.name = "M" + std::to_string(i);
        Publish(MakeEvents(model, 1, 1).ToCbor());
    }
    EXPECT_EQ(WaitForRows("SELECT count(*), min(reason) FROM lum.rejected",
                          "2|its device has brought 2 models already\n"),
              "2|its device has brought 2 models already\n");
    EXPECT_EQ(Query("SELECT count(*) FROM lum.model"), "2\n");
}

TEST_F(FleetHostile, ValuesOfAnotherTypeAndUnknownNamesAreRejected) {
    StartServers();
    StartCollector();
    LumContainer container = MakeEvents({}, 1, 2);
    container.SetString("Count", "text", 1);
    Publish(container.ToCbor());
    EXPECT_EQ(WaitForReason(), "evil|a value of 'Count' is not of the type _INTEGER_\n");
    container = MakeEvents({}, 1, 2);
    container.SetInt32("Stranger", 1, 0);
    Publish(container.ToCbor());
    EXPECT_EQ(WaitForRows("SELECT reason FROM lum.rejected ORDER BY id DESC LIMIT 1",
                          "it holds 'Stranger', which its model does not have\n"),
              "it holds 'Stranger', which its model does not have\n");
}

TEST_F(FleetHostile, WhatTheOutboxCannotSendIsSetAsideAndStopsNobody) {
    StartServers();
    StartCollector();
    Device& device = AddDevice("alpha");
    device.DropBytes("not a container", "EventLogManagerEvents");
    device.DropEvents(1, 2);
    device.DropBytes("for the administrator", "Note", false);
    scratch_.Write("device-alpha/outbox/00-lonely.json", R"({"FileName":"00-lonely.cbor","Upstream":true})");
    scratch_.Write("device-alpha/outbox/01-broken.json", "{");
    scratch_.Write("device-alpha/outbox/02-elsewhere.json",
                   R"({"FileName":"../../secret.cbor","Upstream":true})");
    device.Start(brokerUrls_);
    EXPECT_EQ(WaitForRows("SELECT events FROM lum.batch", "2\n"), "2\n");
    EXPECT_TRUE(WaitFor([&] { return device.CountSetAside() == 4; })) << device.CountSetAside();
    EXPECT_TRUE(WaitFor([&] { return device.CountEntries() == 1; })) << device.CountEntries();
    const std::string log = device.ReadLog();
    for (const char* const line :
         {"Set aside in set-aside: 00-lonely.cbor: the file that it describes is missing",
          "Set aside in set-aside: 01-broken.json: it is not a JSON object",
          "Set aside in set-aside: 02-elsewhere.json: its FileName is not that of the file beside it",
          "EventLogManagerEvents.cbor: refused, it is not a container"}) {
        EXPECT_NE(log.find(line), std::string::npos) << line;
    }
}

TEST_F(FleetHostile, AFloodOfSmallBatchesLeavesTheOthersTheirPlace) {
    constexpr int flood = 11'000;
    constexpr int kept = 10'000;
    StartServers();
    Device& device = AddDevice("good");
    device.DropEvents(1, 2);
    device.Start(brokerUrls_);
    ASSERT_TRUE(WaitFor([&] { return device.GetMetric("lumforward_acknowledged_total") == "1"; }));
    Flood(flood);
    // What is too much of it took the place of its own, not of the other one's.
    const std::string messages = "\"messages\": " + std::to_string(kept + 1) + ",";
    EXPECT_TRUE(WaitFor(
        [&] { return broker_->Monitor("/jsz?streams=1&accounts=1").find(messages) != std::string::npos; }));
    StartCollector();
    EXPECT_EQ(WaitForRows("SELECT device, events FROM lum.batch", "good|2\n"), "good|2\n");
    EXPECT_TRUE(WaitFor([&] { return device.CountEntries() == 0; }));
    const std::string counts = "good|0\nevil|" + std::to_string(kept) + "\n";
    EXPECT_EQ(WaitForRows("SELECT device, rejected FROM lum.device ORDER BY rejected", counts), counts);
    EXPECT_EQ(Query("SELECT count(*) FROM lum.rejected"), "1000\n");
}

TEST_F(FleetHostile, EventsOfAClockThatIsFarOffAreKept) {
    StartServers();
    StartCollector();
    Device& device = AddDevice("alpha");
    device.Drop(MakeEvents({}, 0, 1, 0));              // 1970
    device.Drop(MakeEvents({}, 0, 1, 2'147'483'647));  // 2038
    device.Start(brokerUrls_);
    EXPECT_EQ(WaitForRows("SELECT event_time FROM lum_month.\"event_Reading_other\" ORDER BY 1",
                          "1970-01-01 00:00:00+00\n2038-01-19 03:14:07+00\n"),
              "1970-01-01 00:00:00+00\n2038-01-19 03:14:07+00\n");
}

TEST_F(FleetHostile, AnAlertIsARowOfItsOwn) {
    StartServers();
    StartCollector();
    LumContainer alert;
    alert.SetString("Description", LumString(std::string_view("no\0null", 7)));
    alert.SetString("Status", "bad");
    alert.SetInt32("EventDate", 1'795'000'000);
    alert.SetInt32("EventGMTOffset", 3600);
    Device& device = AddDevice("alpha");
    device.Drop(alert, "EventManagerEvent");
    device.Start(brokerUrls_);
    EXPECT_EQ(WaitForRows("SELECT device, description, status, type, content->>'Status' FROM lum.alert",
                          "alpha|no\xEF\xBF\xBDnull|bad||bad\n"),
              "alpha|no\xEF\xBF\xBDnull|bad||bad\n");
}

TEST_F(FleetHostile, RunningNumbersThatAreMissingAreListed) {
    StartServers();
    StartCollector();
    Device& device = AddDevice("alpha");
    for (int file = 0; file < 6; ++file) {
        device.DropEvents(file, 1);
    }
    std::filesystem::create_directories(scratch_ / "lost");
    for (const auto& entry : std::filesystem::directory_iterator(device.GetOutbox())) {
        const std::string name = entry.path().filename();
        if (name.find("-2-") != std::string::npos || name.find("-4-") != std::string::npos) {
            std::filesystem::rename(entry.path(), scratch_.Path() / "lost" / name);
        }
    }
    device.Start(brokerUrls_);
    EXPECT_EQ(WaitForRows("SELECT device, first_missing, last_missing FROM lum.gap ORDER BY 2",
                          "alpha|2|2\nalpha|4|4\n"),
              "alpha|2|2\nalpha|4|4\n");
    for (const auto& entry : std::filesystem::directory_iterator(scratch_ / "lost")) {
        std::filesystem::rename(entry.path(), device.GetOutbox() / entry.path().filename());
    }
    EXPECT_EQ(WaitForRows("SELECT count(*) FROM lum.gap", "0\n"), "0\n");
}

}  // namespace
