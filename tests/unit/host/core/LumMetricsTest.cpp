#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "host/core/LumMetrics.h"
#include "support/LogReader.h"

namespace {

/// The lines of /metrics that speak of `name`.
std::string Shown(const std::string& name) {
    const LumString text = LumMetricsText();
    std::string lines;
    for (std::size_t from = 0; from < text.GetLength();) {
        const std::size_t end = text.View().find('\n', from);
        const std::string line(text.View().substr(from, end + 1 - from));
        lines += line.find(name) != std::string::npos ? line : "";
        from = end + 1;
    }
    return lines;
}

TEST(LumMetrics, ShowsACounterWithItsLabels) {
    LumCounter& one = LumMetricsCounter("lum_a_total", "Things.", {{"model", "Logon"}, {"status", "0"}});
    LumMetricsCounter("lum_a_total", "Things.", {{"model", "x\"\\\n"}}).Add(7);
    one.Add();
    one.Add(2);
    EXPECT_EQ(&one, &LumMetricsCounter("lum_a_total", "", {{"model", "Logon"}, {"status", "0"}}));
    EXPECT_EQ(Shown("lum_a_total"),
              "# HELP lum_a_total Things.\n"
              "# TYPE lum_a_total counter\n"
              "lum_a_total{model=\"Logon\",status=\"0\"} 3\n"
              "lum_a_total{model=\"x\\\"\\\\\\n\"} 7\n");
}

TEST(LumMetrics, ShowsAGaugeWhileItIsSet) {
    LumGauge& gauge = LumMetricsGauge("lum_b_bytes", "Size.");
    EXPECT_EQ(Shown("lum_b_bytes"), "# HELP lum_b_bytes Size.\n# TYPE lum_b_bytes gauge\n");
    gauge.Set(1.5);
    EXPECT_NE(Shown("lum_b_bytes").find("\nlum_b_bytes 1.5\n"), std::string::npos);
    gauge.Clear();
    EXPECT_EQ(Shown("lum_b_bytes").find("\nlum_b_bytes "), std::string::npos);
}

TEST(LumMetrics, ShowsAHistogramWithGrowingBuckets) {
    LumHistogram& histogram = LumMetricsHistogram("lum_c_seconds", "Time.", {{"a", "b"}}, {0.5, 1});
    for (const double value : {0.25, 0.5, 0.75, 4.0}) {
        histogram.Observe(value);
    }
    EXPECT_EQ(Shown("lum_c_seconds"),
              "# HELP lum_c_seconds Time.\n"
              "# TYPE lum_c_seconds histogram\n"
              "lum_c_seconds_bucket{a=\"b\",le=\"0.5\"} 2\n"
              "lum_c_seconds_bucket{a=\"b\",le=\"1\"} 3\n"
              "lum_c_seconds_bucket{a=\"b\",le=\"+Inf\"} 4\n"
              "lum_c_seconds_sum{a=\"b\"} 5.5\n"
              "lum_c_seconds_count{a=\"b\"} 4\n");
    EXPECT_EQ(LumMetricsHistogram("lum_d_seconds", "Time.").GetBounds().back(), 30.0);
}

TEST(LumMetrics, AsksForWhatIsLookedUp) {
    LumGauge& gauge = LumMetricsGauge("lum_e_files", "Files.");
    {
        const LumMetricsRefresh refresh([&gauge] { gauge.Set(3); });
        EXPECT_NE(Shown("lum_e_files").find("\nlum_e_files 3\n"), std::string::npos);
        gauge.Set(4);
    }
    EXPECT_NE(Shown("lum_e_files").find("\nlum_e_files 4\n"), std::string::npos)
        << "nobody is asked any more";
}

TEST(LumMetrics, CollectsTheStatusOfModulesInTheirOrder) {
    const LumStatusProvider second("Second", [](LumContainer& status) { status.SetInt32("Files", 2); });
    auto gone = std::make_unique<LumStatusProvider>("Gone", [](LumContainer&) { FAIL(); });
    gone.reset();
    const LumStatusProvider first("First", [](LumContainer& status) { status.SetString("Text", "x"); });
    LumContainer status;
    LumStatusCollect(status);
    EXPECT_EQ(status.ToJson(), R"({"Second":{"Files":2},"First":{"Text":"x"}})");
}

TEST(LumMetrics, PutsAStatusWithoutANameBesideTheOthers) {
    const LumStatusProvider own("", [](LumContainer& status) {
        LumStatusSetNumber(status, "small", 2147483647);
        LumStatusSetNumber(status, "large", 3000000000);
    });
    LumContainer status;
    LumStatusCollect(status);
    EXPECT_EQ(status.ToJson(), R"({"small":2147483647,"large":3000000000.0})");
}

TEST(LumMetrics, DoesWithoutAModuleWhoseStatusFails) {
    const HostLogLines log;
    const LumStatusProvider bad("Bad", [](LumContainer&) { throw std::runtime_error("no disk"); });
    const LumStatusProvider good("Good", [](LumContainer&) {});
    LumContainer status;
    LumStatusCollect(status);
    EXPECT_EQ(status.ToJson(), R"({"Good":{}})");
    EXPECT_EQ(log.Count("warning Host The status of 'Bad' failed: no disk\n"), 1U);
}

}  // namespace
