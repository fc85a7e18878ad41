#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "client/text/Quantity.h"
#include "client/text/TimeText.h"

namespace {

TEST(Quantity, CountsThings) {
    EXPECT_EQ(CountText(0, "event"), "0 events");
    EXPECT_EQ(CountText(1, "event"), "1 event");
    EXPECT_EQ(CountText(999, "event"), "999 events");
    EXPECT_EQ(CountText(1234567, "event"), "1,234,567 events");
}

TEST(Quantity, GivesBytesAUnitThatIsRead) {
    EXPECT_EQ(BytesText(0), "0 B");
    EXPECT_EQ(BytesText(1023), "1023 B");
    EXPECT_EQ(BytesText(1536), "1.5 KiB");
    EXPECT_EQ(BytesText(25ULL << 20U), "25 MiB");
    EXPECT_EQ(BytesText(5000ULL << 40U), "5000 TiB");
}

TEST(Quantity, GivesDurationsTwoUnitsAtMost) {
    EXPECT_EQ(DurationText(59), "59 s");
    EXPECT_EQ(DurationText(60), "1 min");
    EXPECT_EQ(DurationText(3 * 3600 + 20 * 60 + 5), "3 h 20 min");
    EXPECT_EQ(DurationText(4 * 3600 + 5), "4 h");
    EXPECT_EQ(DurationText(2 * 86400 + 4 * 3600), "2 d 4 h");
}

TEST(Quantity, ReadsTheUnitFromTheName) {
    EXPECT_EQ(QuantityText("databaseBytes", 2048), "2.0 KiB");
    EXPECT_EQ(QuantityText("uptime", 61), "1 min");
    EXPECT_EQ(QuantityText("lastUpload", 0), "never");
    EXPECT_EQ(QuantityText("count", 2048), "2048");
    EXPECT_EQ(QuantityText("name", "text"), "text");
    EXPECT_EQ(QuantityText("any", nullptr), "");
    EXPECT_EQ(QuantityText("any", true), "true");
    EXPECT_EQ(QuantityText("memory", 2048), "2.0 KiB");
    EXPECT_EQ(QuantityText("database", 2048), "2.0 KiB");
    EXPECT_EQ(QuantityText("log", 2048), "2.0 KiB");
    EXPECT_EQ(QuantityText("oldestAge", 61), "1 min");
    EXPECT_EQ(QuantityText("age", 61), "1 min");
    EXPECT_EQ(QuantityText("silentSeconds", 61), "1 min");
    for (const char* const name : {"oldest", "newestEvent", "lastReceipt", "updatedAt", "startTime"}) {
        EXPECT_EQ(QuantityText(name, 86400), FormatLocalTime(86400)) << name;
    }
}

TEST(Quantity, ShowsWhatIsNoWholeNumberAsItIs) {
    EXPECT_EQ(QuantityText("bytes", 5000000000.0), "4.7 GiB") << "it came over 32 bits";
    EXPECT_EQ(QuantityText("bytes", 0.5), "0.5");
    EXPECT_EQ(QuantityText("bytes", -1), "-1");
    EXPECT_EQ(QuantityText("bytes", 1e300), "1e+300");
}

}  // namespace
