#include <filesystem>

#include "fleet/FleetFixture.h"
#include "support/WaitFor.h"

namespace {

class FleetFaults : public FleetFixture {};

TEST_F(FleetFaults, AForwarderThatIsKilledGoesOnWhereItWas) {
    StartServers();
    Device& device = AddDevice("alpha");
    DropFiles(device, 300);
    StartCollector({"--batches", "20"});
    for (std::size_t left = 300; left > 100; left -= 100) {
        device.Start(brokerUrls_);
        WaitUntilFewerThan(device, left);
        device.GetForwarder().Kill();
    }
    device.Start(brokerUrls_);
    ExpectAllOnce(device, 300);
}

TEST_F(FleetFaults, WhatIsSentAgainIsStoredOnce) {
    StartServers({"--stream-hours", "1"});
    Device& device = AddDevice("alpha");
    DropFiles(device, 5);
    std::filesystem::copy(device.GetOutbox(), scratch_ / "copy");
    StartCollector();
    device.Start(brokerUrls_);
    ExpectAllOnce(device, 5);
    // The outbox is restored from a backup: each description after the file that it describes.
    for (const std::string extension : {".cbor", ".json"}) {
        for (const auto& file : std::filesystem::directory_iterator(scratch_ / "copy")) {
            if (file.path().extension() == extension) {
                std::filesystem::copy(file.path(), device.GetOutbox());
            }
        }
    }
    ExpectAllOnce(device, 5);
    EXPECT_EQ(Query("SELECT count(*) FROM lum.batch"), "5\n");
}

TEST_F(FleetFaults, ACollectorThatIsKilledLeavesNothingHalfDone) {
    StartServers();
    Device& device = AddDevice("alpha");
    DropFiles(device, 400);
    device.Start(brokerUrls_);
    for (std::size_t left = 400; left > 100; left -= 100) {
        Process& collector = StartCollector({"--batches", "7"});
        WaitUntilFewerThan(device, left);
        collector.Kill();
    }
    StartCollector();
    ExpectAllOnce(device, 400);
}

TEST_F(FleetFaults, ADatabaseThatIsKilledIsWaitedFor) {
    StartServers();
    Device& device = AddDevice("alpha");
    DropFiles(device, 200);
    StartCollector({"--batches", "10"});
    device.Start(brokerUrls_);
    WaitUntilFewerThan(device, 190);
    database_->Kill();
    EXPECT_TRUE(WaitFor([&] { return GetCollector("/health").find("degraded") != std::string::npos; }));
    DropFiles(device, 50, 200);
    ASSERT_TRUE(database_->Start());
    ExpectAllOnce(device, 250);
    EXPECT_TRUE(WaitFor([&] { return GetCollector("/health") == R"({"status":"ok"})"; }));
}

TEST_F(FleetFaults, ABrokerThatIsKilledIsWaitedFor) {
    StartServers();
    Device& device = AddDevice("alpha");
    StartCollector();
    device.Start(brokerUrls_);
    DropFiles(device, 100);
    WaitUntilFewerThan(device, 90);
    broker_->Kill();
    EXPECT_TRUE(
        WaitFor([&] { return device.Get("/health").find("cannot be reached") != std::string::npos; }));
    DropFiles(device, 100, 100);
    ASSERT_TRUE(broker_->Start());
    ExpectAllOnce(device, 200);
}

TEST_F(FleetFaults, AStreamThatWasDeletedIsMadeAgainAndFilledFromTheDevices) {
    StartServers();
    Device& device = AddDevice("alpha");
    DropFiles(device, 20);
    device.Start(brokerUrls_);
    // Nobody collects: all lie in the stream when it goes.
    ASSERT_TRUE(WaitFor([&] {
        return device.Get("/metrics").find("lumforward_acknowledged_total 20\n") != std::string::npos;
    }));
    broker_->Stop();
    std::filesystem::remove_all(broker_->GetDirectory() + "/store");
    ASSERT_TRUE(broker_->Start());
    DropFiles(device, 10, 20);
    EXPECT_TRUE(WaitFor([&] { return device.ReadLog().find("no stream takes it") != std::string::npos; }));
    ASSERT_EQ(SetUpFleet(), 0);
    StartCollector();
    ExpectAllOnce(device, 30);
}

TEST_F(FleetFaults, WhatARestoredDatabaseHasLostComesAgainFromTheStream) {
    StartServers();
    Device& device = AddDevice("alpha");
    Process& collector = StartCollector();
    device.Start(brokerUrls_);
    DropFiles(device, 10);
    ExpectAllOnce(device, 10);
    database_->Stop();
    std::filesystem::copy(database_->GetDirectory() + "/data", scratch_ / "backup",
                          std::filesystem::copy_options::recursive);
    ASSERT_TRUE(database_->Start());
    DropFiles(device, 10, 10);
    ExpectAllOnce(device, 20);
    collector.Stop();
    ASSERT_EQ(Query("DELETE FROM lum.batch WHERE id > 10; DELETE FROM lum.\"event_Reading\" WHERE batch > 10;"
                    "UPDATE lum.progress SET sequence = 10"),
              "");
    StartCollector();
    ExpectAllOnce(device, 20);
    EXPECT_NE(ReadCollectorLog().find("The database has lost"), std::string::npos);
}

TEST_F(FleetFaults, TwoCollectorsShareTheWork) {
    StartServers();
    Device& device = AddDevice("alpha");
    Device& other = AddDevice("beta");
    StartCollector({"--batches", "5"});
    StartCollector({"--batches", "5"});
    DropFiles(device, 200);
    for (int file = 0; file < 200; ++file) {
        UploadedModel model;
        model.name = "Other";
        other.Drop(MakeEvents(model, file, 1));
    }
    device.Start(brokerUrls_);
    other.Start(brokerUrls_);
    ExpectAllOnce(device, 200);
    EXPECT_EQ(WaitForRows("SELECT count(*), count(DISTINCT \"Count\") FROM lum.\"event_Other\"", "200|200\n"),
              "200|200\n");
    EXPECT_EQ(WaitForRows("SELECT device, batches, missing FROM lum.device ORDER BY 1",
                          "alpha|200|{}\nbeta|200|{}\n"),
              "alpha|200|{}\nbeta|200|{}\n");
}

TEST_F(FleetFaults, AClusterOutlivesTheLeaderAndAFollowerOfItsStream) {
    BrokerCluster cluster(scratch_ / "cluster");
    ASSERT_TRUE(cluster.Start());
    ASSERT_TRUE(database_->Start());
    ASSERT_EQ(database_->Query("CREATE DATABASE lum", "postgres"), "");
    brokerUrls_ = cluster.GetUrls();
    ASSERT_TRUE(WaitFor([&] { return SetUpFleet() == 0; })) << ReadWholeFile(scratch_ / "setup.log");
    EXPECT_NE(ReadWholeFile(scratch_ / "setup.log").find("replicas 3"), std::string::npos);
    Device& device = AddDevice("alpha");
    StartCollector();
    device.Start(brokerUrls_);
    DropFiles(device, 100);
    WaitUntilFewerThan(device, 90);
    int files = 100;
    for (const std::size_t afterLeader : {0U, 1U}) {
        std::size_t leader = 3;
        ASSERT_TRUE(WaitFor([&] { return (leader = cluster.FindStreamLeader()) < 3; }));
        BrokerServer& victim = cluster.At((leader + afterLeader) % 3);
        victim.Kill();
        DropFiles(device, 100, files);
        ExpectAllOnce(device, files + 100);
        victim.Launch();
        DropFiles(device, 100, files + 100);
        ExpectAllOnce(device, files + 200);
        ASSERT_TRUE(victim.WaitUntilReady());
        files += 200;
    }
}

}  // namespace
