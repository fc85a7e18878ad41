#include <gtest/gtest.h>

#include "fleet/service/MetricsText.h"

namespace {

TEST(MetricsText, SaysOfEachMetricWhatItIs) {
    MetricsText text("program_");
    text.AddCounter("done_total", "What was done.", 3);
    text.AddGauge("share", "A share.", 0.25);
    EXPECT_EQ(
        text.GetText(),
        "# HELP program_done_total What was done.\n# TYPE program_done_total counter\nprogram_done_total 3\n"
        "# HELP program_share A share.\n# TYPE program_share gauge\nprogram_share 0.25\n");
}

TEST(MetricsText, WritesLargeNumbersWithAllTheirDigits) {
    MetricsText text("");
    text.AddGauge("moment", "Seconds.", 1'795'284'725);
    text.AddCounter("bytes", "Bytes.", 123'456'789'012'345);
    EXPECT_NE(text.GetText().find("\nmoment 1795284725\n"), std::string::npos);
    EXPECT_NE(text.GetText().find("\nbytes 123456789012345\n"), std::string::npos);
}

TEST(MetricsText, KnowsTheMemoryOfTheProcess) {
    EXPECT_GT(ResidentBytes(), 100'000U);
}

}  // namespace
