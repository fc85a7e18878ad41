#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/report/Html.h"
#include "client/report/ReportPage.h"
#include "support/TimeZone.h"

namespace {

using testing::HasSubstr;

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

TEST(ReportPage, PutsTogetherWhatIsTooMuchForAPicture) {
    const TimeZone zone("UTC");
    ReportData data = TwoDays();
    for (std::size_t i = 0; i < html::kColours + 3; ++i) {
        ModelReport& model = data.models.emplace_back("Model" + std::to_string(i), data.days);
        model.byDevice.Add(5, std::to_string(i));
        model.stored = -1;
    }
    data.models.back().enabled = false;
    data.models.front().byDevice.Add(5, "more");
    data.models.front().byDevice.Add(5, "and more");
    data.models.front().byDevice.Add(5, "and still more");
    data.models.front().values.push_back({"Who", {{"", 1}}, 3});
    const std::string page = ReportAsHtml(data);
    EXPECT_THAT(page, HasSubstr("\"></span>other models</li></ul>"));
    EXPECT_THAT(page, HasSubstr("<span class=\"name\">other devices</span>"));
    EXPECT_THAT(page, HasSubstr("<span class=\"tag\">disabled</span>"));
    EXPECT_THAT(page, HasSubstr("<span class=\"name\">(empty)</span>"));
    EXPECT_THAT(page, HasSubstr("<span class=\"name\">(others)</span>"));
}

TEST(ReportPage, TellsTheLongestGapsOfASingleDay) {
    const TimeZone zone("UTC");
    ReportData data = TwoDays();
    data.until = 24 * kHour - 1;
    data.days.resize(1);
    data.hours.resize(24);
    data.eventsByHour.assign(24, 0);
    for (std::size_t i = 2; i < 24; i += 3) {
        data.eventsByHour[i] = 1;
    }
    data.alertsSent = 5;
    data.alertsHeldBack = 0;
    data.databaseBytes = 2048;
    data.outboxFiles = 1;
    const std::string page = ReportAsHtml(data);
    EXPECT_THAT(page, HasSubstr("8 times of two hours or more without any event."));
    EXPECT_THAT(
        page,
        HasSubstr("<tr><td>1970-01-01 00:00</td><td>1970-01-01 02:00</td><td class=\"n\">2 h</td></tr>"));
    EXPECT_THAT(page, HasSubstr("<b>5</b><span>alerts sent since the start</span>"));
    EXPECT_THAT(page, HasSubstr("<span class=\"name\">held back</span>"));
    EXPECT_THAT(page, HasSubstr("The database takes 2.0 KiB.</p>")) << "the outbox's bytes are not told";
}

TEST(Html, LeavesNothingToDivideBy) {
    EXPECT_EQ(html::BarList({}, 0), "<div class=\"bars\"></div>\n");
    EXPECT_THAT(html::BarList({{"rest", 3, true}}, 0), HasSubstr("width=\"100\""))
        << "the rest is all there is";
    EXPECT_THAT(html::BarList({{"one", 2, false}, {"none", 0, false}, {"rest", 9, true}}, 0),
                HasSubstr("width=\"0\""));
    EXPECT_THAT(html::Columns({}, 100, "label", {}), HasSubstr("viewBox=\"0 0 10 100\""));
    EXPECT_THAT(html::HeatField({{}, {0, 1}}, "label", {}, {"first", "middle", "last"}),
                HasSubstr("<span>first</span><span class=\"wide\">middle</span><span>last</span>"));
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
