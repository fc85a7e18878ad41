#include <gtest/gtest.h>

#include "client/report/Html.h"
#include "client/report/ReportPage.h"
#include "support/TimeZone.h"

namespace {

constexpr int64_t kHour = 3600;

ReportData TwoDays() {
    ReportData data;
    data.host = "host<1>";
    data.since = 0;
    data.until = 48 * kHour - 1;
    data.days = PeriodStarts(TallyPeriod::kDay, data.since, data.until);
    data.hours = PeriodStarts(TallyPeriod::kHour, data.since, data.until);
    data.eventsByHour.assign(data.hours.size(), 1);
    return data;
}

TEST(ReportPage, FindsGapsOfTwoHoursTheLongestFirst) {
    const TimeZone zone("UTC");
    ReportData data = TwoDays();
    data.eventsByHour[3] = 0;
    data.eventsByHour[10] = data.eventsByHour[11] = 0;
    for (std::size_t i = 40; i < 48; ++i) {
        data.eventsByHour[i] = 0;
    }
    const std::vector<RecordGap> gaps = data.FindGaps();
    ASSERT_EQ(gaps.size(), 2U);
    EXPECT_EQ(gaps[0].from, 40 * kHour);
    EXPECT_EQ(gaps[0].to, 48 * kHour);
    EXPECT_EQ(gaps[1].from, 10 * kHour);
    EXPECT_EQ(gaps[1].to, 12 * kHour);
}

TEST(ReportPage, ShowsWhatItIsGivenAsText) {
    const TimeZone zone("UTC");
    ReportData data = TwoDays();
    ModelReport& model = data.models.emplace_back("Model", data.days);
    model.note = "<script>alert(1)</script>";
    model.byDevice.Add(5, "7");
    model.values.push_back({"Who", {{"\"><img src=x>", 1}}, 0});
    const std::string page = ReportAsHtml(data);
    EXPECT_EQ(page.find("<script"), std::string::npos);
    EXPECT_EQ(page.find("<img"), std::string::npos);
    EXPECT_NE(page.find("Events of host&lt;1&gt;"), std::string::npos);
    EXPECT_NE(page.find("Device 7"), std::string::npos);
}

TEST(ReportPage, NamesModelsWithoutEventsBelowTheBars) {
    const TimeZone zone("UTC");
    ReportData data = TwoDays();
    data.models.emplace_back("Busy", data.days).byDevice.Add(5, "7");
    data.models.emplace_back("Idle", data.days);
    data.models.emplace_back("<Idle>", data.days);
    EXPECT_NE(ReportAsHtml(data).find("<p class=\"quiet rest\">None: Idle, &lt;Idle&gt;</p>"),
              std::string::npos);
}

TEST(ReportPage, SaysSoWhereThereIsNothing) {
    const TimeZone zone("UTC");
    const std::string page = ReportAsHtml(TwoDays());
    EXPECT_NE(page.find("No model has an event of this time."), std::string::npos);
    EXPECT_NE(page.find("does not count its alerts"), std::string::npos);
}

TEST(Html, EndsAScaleWithARoundNumberWhoseHalfIsRound) {
    for (const auto& [largest, top] : std::vector<std::pair<uint64_t, std::string>>{
             {1, "1"}, {3, "4"}, {5, "6"}, {7, "8"}, {9, "10"}, {11, "20"}, {216, "400"}, {401, "600"}}) {
        EXPECT_NE(html::Columns({{0, {largest}}}, 100, "label", {}).find("<span>" + top + "</span>"),
                  std::string::npos)
            << largest;
    }
}

TEST(Html, PutsColumnsOnTopOfEachOther) {
    const std::string columns = html::Columns({{0, {1, 0}}, {1, {1, 2}}}, 100, "label", {"a", "b"});
    EXPECT_NE(columns.find("<rect x=\"1\" y=\"50\" width=\"8\" height=\"50\" fill=\"var(--c0)\"/>"),
              std::string::npos)
        << columns;
    EXPECT_NE(columns.find("<rect x=\"1\" y=\"0\" width=\"8\" height=\"50\" fill=\"var(--c1)\"/>"),
              std::string::npos)
        << columns;
}

}  // namespace
