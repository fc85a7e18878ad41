#include <algorithm>
#include <ctime>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/TimeZone.h"
#include "unit/client/AnswerServer.h"
#include "unit/client/RunClient.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// What a chart shows of events at these dates, each of the visitor in the same place.
ClientRun Chart(const std::vector<int64_t>& dates, const std::vector<std::string>& visitors,
                std::vector<std::string> options, const ClientTerminal& terminal = {}) {
    const TimeZone zone("UTC");
    std::string columns[2];
    for (std::size_t i = 0; i < dates.size(); ++i) {
        columns[0] += (i == 0 ? "" : ",") + std::to_string(dates[i]);
        columns[1] += (i == 0 ? "\"" : ",\"") + visitors[i % visitors.size()] + "\"";
    }
    const AnswerServer server(
        VisitPages("/actions/EventLogManagerGetEvents",
                   R"({"status":0,"container":{"Result":{"EventCount":9,"EventDate":[)" + columns[0] +
                       R"(],"Who":[)" + columns[1] + "]}}}"));
    options.insert(options.begin(), {"chart", "Visit"});
    return RunClient(server.GetPath(), options, terminal);
}

TEST(ChartCommand, ShowsTheLastDayOrTheLastThirty) {
    const int64_t now = std::time(nullptr);
    const std::string hours = Chart({now}, {"ann"}, {"--by", "hour"}).out;
    EXPECT_EQ(std::count(hours.begin(), hours.end(), '\n'), 2 + 24 + 2);
    const std::string days = Chart({now}, {"ann"}, {"--by", "day"}).out;
    EXPECT_EQ(std::count(days.begin(), days.end(), '\n'), 2 + 30 + 2);
    EXPECT_THAT(days, EndsWith("\n1 event\n"));
}

TEST(ChartCommand, FitsANarrowTerminal) {
    const std::string out = Chart({10, 20}, {"ann"}, {"--since", "0", "--until", "100"},
                                  {.isTerminal = true, .unicode = false, .columns = 20})
                                .out;
    EXPECT_THAT(out, HasSubstr("1970-01-01  2  \x1b[36m##########\x1b[0m\n"));
}

TEST(ChartCommand, CutsLongValuesAndNamesEmptyOnes) {
    const std::string out =
        Chart({1, 2, 3}, {"", std::string(31, 'x'), ""}, {"--since", "0", "--until", "100", "--per", "Who"})
            .out;
    EXPECT_THAT(out, HasSubstr("\n(empty)" + std::string(25, ' ') + "\u2588  2\n" + std::string(29, 'x') +
                               "\u2026  \u2584  1\n"));
    EXPECT_THAT(out, EndsWith("\n3 events; the highest mark is 2\n"));
}

TEST(ChartCommand, PutsTheRarestValuesTogether) {
    std::vector<int64_t> dates;
    std::vector<std::string> visitors;
    for (int i = 0; i < 14; ++i) {
        dates.push_back(i);
        visitors.push_back("v" + std::to_string(i));
    }
    const std::vector<std::string> options{"--since", "0", "--until", "100", "--per", "Who"};
    EXPECT_THAT(Chart(dates, visitors, options).out, HasSubstr("\n(others)  \u2588  2\n"));
}

TEST(ChartCommand, CountsByDeviceAndByGroup) {
    for (const char* const per : {"device", "group"}) {
        const ClientRun run = Chart({1}, {"ann"}, {"--since", "0", "--until", "100", "--per", per});
        EXPECT_THAT(run.out, StartsWith("Visit: events by day per " + std::string(per) +
                                        ", 1970-01-01 to 1970-01-01\n"));
        EXPECT_THAT(run.out, HasSubstr("\n(empty)  \u2588  1\n")) << "an event that tells none";
    }
}

TEST(ChartCommand, ShowsNothingOfAWalkThatFailed) {
    const AnswerServer server(VisitPages("/actions/EventLogManagerGetEvents", R"({"status":1})"));
    const ClientRun run = RunClient(server.GetPath(), {"chart", "Visit"});
    EXPECT_EQ(run.exit, ExitStatus::kFailed);
    EXPECT_EQ(run.out, "");
}

}  // namespace
