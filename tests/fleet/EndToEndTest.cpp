#include "fleet/FleetFixture.h"
#include "support/WaitFor.h"

namespace {

class FleetEndToEnd : public FleetFixture {};

TEST_F(FleetEndToEnd, AFileBecomesRowsAndLeavesTheOutboxAfterItsReceipt) {
    StartServers();
    Device& device = AddDevice("alpha");
    device.DropEvents(1, 3);
    device.Start(brokerUrls_);
    StartCollector();
    EXPECT_EQ(
        WaitForRows("SELECT \"Count\", \"Text\", position, device FROM lum.\"event_Reading\" ORDER BY 1",
                    "1|event 1|0|alpha\n2|event 2|1|alpha\n3|event 3|2|alpha\n"),
        "1|event 1|0|alpha\n2|event 2|1|alpha\n3|event 3|2|alpha\n");
    EXPECT_TRUE(WaitFor([&] { return device.CountEntries() == 0; }));
    EXPECT_EQ(Query("SELECT device, batches, events, rejected, highest_number, missing FROM lum.device"),
              "alpha|1|3|0|1|{}\n");
    EXPECT_EQ(Query("SELECT model, events, label FROM lum.batch"), "Reading|3|EventLogManagerEvents\n");
}

}  // namespace
