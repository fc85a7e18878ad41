#include <array>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "fleet/FleetFixture.h"
#include "support/AgentProcess.h"
#include "support/WaitFor.h"

namespace {

constexpr int32_t kDaySeconds = 24 * 3600;

/// What a fleet goes through in its years: new steps of the schema, months that come and go, clocks that
/// jump.
class FleetMaintenance : public FleetFixture {
protected:
    /// The month of `time`, or one so many months later, as in the names of partitions.
    static std::string MonthOf(std::time_t time, int later = 0) {
        std::tm parts{};
        gmtime_r(&time, &parts);
        parts.tm_mday = 1;
        parts.tm_mon += later;
        static_cast<void>(timegm(&parts));  // brings a thirteenth month in line
        std::array<char, 16> text{};
        static_cast<void>(std::strftime(text.data(), text.size(), "%Y%m", &parts));  // fits
        return text.data();
    }
    [[nodiscard]] std::string Partitions() const {
        return Query(
            "SELECT right(c.relname, 6) FROM pg_inherits i JOIN pg_class c ON c.oid = i.inhrelid"
            " JOIN pg_class p ON p.oid = i.inhparent WHERE p.relname = 'event_Reading'"
            " AND c.relname ~ '_[0-9]{6}$' ORDER BY 1");
    }
};

TEST_F(FleetMaintenance, ACollectorWaitsForTheStepsOfItsReleaseAndGoesOnByItself) {
    StartServers();
    ASSERT_EQ(Query("DELETE FROM lum.schema_step WHERE number = 2; DROP VIEW lum.gap"), "");
    Device& device = AddDevice("alpha");
    StartCollector();
    device.Start(brokerUrls_);
    DropFiles(device, 10);
    EXPECT_TRUE(WaitFor([&] {
        return ReadCollectorLog().find("has had 1 of 2 steps; run lumcollect --setup") != std::string::npos;
    })) << ReadCollectorLog();
    EXPECT_EQ(device.CountEntries(), 10U);
    ASSERT_EQ(SetUpFleet(), 0);
    ExpectAllOnce(device, 10);
}

TEST_F(FleetMaintenance, StepsAreTakenWhileTwoCollectorsStore) {
    StartServers();
    Device& device = AddDevice("alpha");
    DropFiles(device, 300);
    StartCollector({"--batches", "3"});
    StartCollector({"--batches", "3"});
    device.Start(brokerUrls_);
    for (std::size_t left = 300; left > 100; left -= 100) {
        WaitUntilFewerThan(device, left);
        // As if the last step were one of the next release.
        ASSERT_EQ(Query("DELETE FROM lum.schema_step WHERE number = 2; DROP VIEW lum.gap"), "");
        ASSERT_EQ(SetUpFleet(), 0) << ReadWholeFile(scratch_ / "setup.log");
    }
    ExpectAllOnce(device, 300);
    EXPECT_EQ(Query("SELECT count(*) FROM lum.schema_step"), "2\n");
    EXPECT_EQ(Query("SELECT count(*) FROM lum.gap"), "0\n");
}

TEST_F(FleetMaintenance, OldMonthsAreDroppedAndTheNextOneIsMadeAhead) {
    StartServers();
    const auto now = static_cast<int32_t>(std::time(nullptr));
    Device& device = AddDevice("alpha");
    device.Drop(MakeEvents({}, 0, 10, now - 200 * kDaySeconds));
    device.Drop(MakeEvents({}, 10, 10, now));
    device.Drop(MakeEvents({}, 20, 10, now - 6'000 * kDaySeconds));  // in the partition of all other times
    device.Start(brokerUrls_);
    Process& collector = StartCollector();
    ExpectAllOnce(device, 3);
    ASSERT_EQ(Partitions().find(MonthOf(now - 200 * kDaySeconds) + "\n" + MonthOf(now) + "\n"), 0U);
    collector.Stop();
    StartCollector({"--keep-months", "2"});
    const std::string rows = "10|10|19\n";
    EXPECT_EQ(WaitForRows("SELECT count(*), min(\"Count\"), max(\"Count\") FROM lum.\"event_Reading\"", rows),
              rows);
    EXPECT_TRUE(WaitFor([&] { return Partitions() == MonthOf(now) + "\n" + MonthOf(now, 1) + "\n"; }))
        << Partitions();
    // What is kept goes on as before.
    device.Drop(MakeEvents({}, 30, 10, now));
    EXPECT_EQ(WaitForRows("SELECT count(*) FROM lum.\"event_Reading\"", "20\n"), "20\n");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
/// The library that fakes the clock has to be the first in the process, and so has a sanitizer's.
TEST_F(FleetMaintenance, ClocksThatJumpHoldNobodyUp) {
    StartServers();
    const std::string clock = scratch_ / "clock";
    std::ofstream(clock) << "+0d\n";
    const std::vector<std::string> faked = {
        "env",
        "LD_PRELOAD=" + RunShell("printf %s /usr/lib/*/faketime/libfaketimeMT.so.1"),
        "FAKETIME_TIMESTAMP_FILE=" + clock,
        "FAKETIME_NO_CACHE=1",
        "FAKETIME_DONT_FAKE_MONOTONIC=1",
        "NO_FAKE_STAT=1"};
    Device& device = AddDevice("alpha");
    SetPrefix(faked);
    StartCollector();
    device.SetPrefix(faked);
    device.Start(brokerUrls_);
    int files = 0;
    for (const char* const time : {"+0d", "+400d", "-400d", "-3000d", "+1d"}) {
        std::ofstream(clock) << time << '\n';
        DropFiles(device, 20, files);
        files += 20;
        ExpectAllOnce(device, files);
    }
    // Having gone back does not keep a collector from noticing that the stream is gone.
    std::ofstream(clock) << "-400d\n";
    broker_->Stop();
    std::filesystem::remove_all(broker_->GetDirectory() + "/store");
    ASSERT_TRUE(broker_->Start());
    DropFiles(device, 20, files);
    ASSERT_EQ(SetUpFleet(), 0);
    ExpectAllOnce(device, files + 20, std::chrono::seconds(90));
}
#endif

}  // namespace
