#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "fleet/FleetFixture.h"
#include "support/AgentProcess.h"
#include "support/SmallDisk.h"
#include "support/TcpProxy.h"
#include "support/WaitFor.h"

namespace {

constexpr std::size_t kMegabyte = 1'000'000;
/// Longer than a forwarder waits for an acknowledgement before it sends again.
constexpr std::chrono::seconds kPatience(90);

/// Disks that are full, networks that are cut, servers that fall silent: afterwards all rows are there once,
/// and everybody has gone on without being told.
class FleetOutages : public FleetFixture {
protected:
    /// Three servers with a stream of three copies, and the database.
    void StartCluster() {
        cluster_ = std::make_unique<BrokerCluster>(scratch_ / "cluster");
        ASSERT_TRUE(cluster_->Start());
        ASSERT_TRUE(database_->Start());
        ASSERT_EQ(database_->Query("CREATE DATABASE lum", "postgres"), "");
        brokerUrls_ = cluster_->GetUrls();
        ASSERT_TRUE(WaitFor([&] { return SetUpFleet() == 0; }, kPatience))
            << ReadWholeFile(scratch_ / "setup.log");
    }
    [[nodiscard]] std::size_t FindLeader() const {
        std::size_t leader = 3;
        EXPECT_TRUE(WaitFor([&] { return (leader = cluster_->FindStreamLeader()) < 3; }, kPatience));
        return leader;
    }

    std::unique_ptr<BrokerCluster> cluster_;
};

TEST_F(FleetOutages, AFullDiskOfTheBrokerLosesNothing) {
    const SmallDisk disk(24 * kMegabyte);
    if (!disk.IsThere()) {
        GTEST_SKIP() << "Making a disk takes the rights of root";
    }
    broker_ = std::make_unique<BrokerServer>(disk / "broker", "n1");
    brokerUrls_ = broker_->GetUrl();
    StartServers({"--stream-megabytes", "8"});
    Device& device = AddDevice("alpha");
    StartCollector();
    device.Start(brokerUrls_);
    DropFiles(device, 20);
    ExpectAllOnce(device, 20);
    disk.Fill();
    DropFiles(device, 200, 20);
    // All of them are handed to the broker, some maybe more than once.
    EXPECT_TRUE(WaitFor([&] {
        return std::atoi(device.GetMetric("lumforward_published_total").c_str()) >= 220;
    })) << device.Get("/metrics");
    EXPECT_GT(device.CountEntries(), 0U);
    // A broker that ran out of room does not go on by itself, and does not end when it is asked to.
    disk.Clear();
    broker_->Kill();
    ASSERT_TRUE(broker_->Start());
    ExpectAllOnce(device, 220, kPatience);
}

TEST_F(FleetOutages, AFullDiskOfTheDatabaseIsWaitedFor) {
    const SmallDisk disk(48 * kMegabyte);
    if (!disk.IsThere()) {
        GTEST_SKIP() << "Making a disk takes the rights of root";
    }
    StartServers();
    std::filesystem::create_directories(disk / "tables");
    ASSERT_EQ(RunShell("chown nobody " + (disk / "tables") + " && chmod 755 $(dirname " + (disk / "x") +
                       ") $(dirname $(dirname " + (disk / "x") + "))"),
              "");
    ASSERT_EQ(database_->Query("CREATE TABLESPACE small LOCATION '" + (disk / "tables") + "'", "postgres"),
              "");
    ASSERT_EQ(database_->Query("ALTER DATABASE lum SET TABLESPACE small", "postgres"), "");
    Device& device = AddDevice("alpha");
    StartCollector({"--batches", "10"});
    device.Start(brokerUrls_);
    DropFiles(device, 20);
    ExpectAllOnce(device, 20);
    disk.Fill();
    DropFiles(device, 400, 20);
    EXPECT_TRUE(WaitFor(
        [&] { return ReadCollectorLog().find("No space left on device") != std::string::npos; }, kPatience))
        << ReadCollectorLog();
    EXPECT_GT(device.CountEntries(), 0U);
    disk.Clear();
    ExpectAllOnce(device, 420, kPatience);
    EXPECT_EQ(Query("SELECT count(*) FROM lum.rejected"), "0\n");
}

TEST_F(FleetOutages, ALeaderThatFallsSilentAndComesBackChangesNothing) {
    StartCluster();
    const std::size_t leader = FindLeader();
    // Those who are connected to the silent one have to notice that first, which takes half a minute.
    brokerUrls_ = cluster_->At((leader + 1) % 3).GetUrl() + "," + cluster_->At((leader + 2) % 3).GetUrl();
    Device& device = AddDevice("alpha");
    StartCollector();
    device.Start(brokerUrls_);
    DropFiles(device, 50);
    ExpectAllOnce(device, 50);
    cluster_->At(leader).GetProcess().Signal(SIGSTOP);
    DropFiles(device, 50, 50);
    ExpectAllOnce(device, 100, kPatience);
    cluster_->At(leader).GetProcess().Signal(SIGCONT);
    DropFiles(device, 50, 100);
    ExpectAllOnce(device, 150, kPatience);
}

TEST_F(FleetOutages, AServerWithoutItsClusterTakesNothingUntilTheClusterIsBack) {
    StartCluster();
    const std::size_t leader = FindLeader();
    brokerUrls_ = cluster_->At(leader).GetUrl();
    Device& device = AddDevice("alpha");
    StartCollector();
    device.Start(brokerUrls_);
    DropFiles(device, 20);
    ExpectAllOnce(device, 20);
    for (std::size_t other = 1; other < 3; ++other) {
        cluster_->At((leader + other) % 3).GetProcess().Signal(SIGSTOP);
    }
    DropFiles(device, 20, 20);
    // Whatever the one server does with them, nothing may leave the outbox.
    EXPECT_TRUE(WaitFor([&] {
        return std::atoi(device.GetMetric("lumforward_published_total").c_str()) >= 40;
    })) << device.Get("/metrics");
    EXPECT_EQ(device.CountEntries(), 20U);
    for (std::size_t other = 1; other < 3; ++other) {
        cluster_->At((leader + other) % 3).GetProcess().Signal(SIGCONT);
    }
    ExpectAllOnce(device, 40, kPatience);
}

TEST_F(FleetOutages, AConnectionThatIsCutInTheMiddleOfAMessageOfADeviceLosesNothing) {
    StartServers();
    TcpProxy proxy(broker_->GetPort());
    Device& device = AddDevice("alpha");
    DropFiles(device, 100);
    StartCollector();
    // Past the greeting, in the middle of one of the first batches.
    constexpr uint64_t bytes = 3'001;
    proxy.CutNext(5, TcpProxy::Way::kToServer, bytes);
    device.Start("nats://127.0.0.1:" + std::to_string(proxy.GetPort()));
    ExpectAllOnce(device, 100);
    EXPECT_EQ(proxy.CountCuts(), 5);
}

TEST_F(FleetOutages, AConnectionThatIsCutInTheMiddleOfAMessageToACollectorLosesNothing) {
    StartServers();
    Device& device = AddDevice("alpha");
    DropFiles(device, 100);
    device.Start(brokerUrls_);
    TcpProxy proxy(broker_->GetPort());
    constexpr uint64_t bytes = 20'001;
    proxy.CutNext(3, TcpProxy::Way::kToClient, bytes);
    brokerUrls_ = "nats://127.0.0.1:" + std::to_string(proxy.GetPort());
    StartCollector({"--batches", "10"});
    ExpectAllOnce(device, 100, kPatience);
    EXPECT_EQ(proxy.CountCuts(), 3);
}

}  // namespace
