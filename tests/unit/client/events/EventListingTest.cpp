#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/client/AnswerServer.h"
#include "unit/client/RunClient.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// Answers for the model Visit; questions for events get `pages` one after the other, then failures.
AnswerServer::Routine PageByPage(std::vector<std::string> pages) {
    return [pages = std::move(pages), visit = VisitPages(), asked = std::size_t{0}](
               const std::string& target, const std::string& /*body*/) mutable {
        const auto page = visit.find(target.substr(0, target.find('?')));
        if (page != visit.end()) {
            return AnswerServer::Answer{AnswerServer::Reply(page->second)};
        }
        return AnswerServer::Answer{AnswerServer::Reply(
            asked < pages.size() ? pages[asked++] : R"({"status":1,"messages":["no more"]})")};
    };
}

/// A page of events with these dates and with Long counting from 0, of a model with ten.
std::string Page(const std::vector<int>& dates) {
    std::string columns[2];
    for (std::size_t i = 0; i < dates.size(); ++i) {
        columns[0] += (i == 0 ? "" : ",") + std::to_string(dates[i]);
        columns[1] += (i == 0 ? "" : ",") + std::to_string(i);
    }
    return R"({"status":0,"container":{"Result":{"EventCount":10)" +
           (dates.empty() ? "" : R"(,"EventDate":[)" + columns[0] + R"(],"Long":[)" + columns[1] + "]") +
           "}}}";
}

/// Lists the events as CSV, without its header.
ClientRun List(std::vector<std::string> pages, std::vector<std::string> options) {
    const AnswerServer server(PageByPage(std::move(pages)));
    options.insert(options.begin(), {"events", "Visit", "--output", "csv"});
    ClientRun run = RunClient(server.GetPath(), options);
    run.out.erase(0, run.out.find('\n') + 1);
    return run;
}

TEST(EventListing, ShowsWhatCameBeforeAFailure) {
    const ClientRun run = List({Page(std::vector<int>(100, 5))}, {"--all"});
    EXPECT_EQ(run.exit, ExitStatus::kFailed);
    EXPECT_THAT(run.out, StartsWith("5,,,,0\n5,,,,1\n"));
    EXPECT_THAT(run.out, EndsWith("5,,,,99\n"));
    EXPECT_THAT(run.err, EndsWith("lumctl: agent: no more\n"));
}

TEST(EventListing, SkipsByItselfWhatTheAgentCannot) {
    const std::vector<std::string> far{"--page", "2147483647", "--page-size", "2"};
    EXPECT_EQ(List({Page({9, 8, 7})}, far).out, "");
    EXPECT_EQ(List({Page({9, 8, 7})}, {"--page", "2", "--page-size", "1", "Long=1"}).out, "");
    EXPECT_EQ(
        List({Page({9, 8, 7, 6})}, {"--page", "2", "--page-size", "1", "--sort", "Long", "--since", "7"}).out,
        "8,,,,1\n");
    EXPECT_EQ(List({Page({1, 8, 9, 7})}, {"--sort", "Long", "--since", "7", "--until", "8"}).out,
              "8,,,,1\n7,,,,3\n");
}

TEST(EventListing, FollowsUntilTheAgentFails) {
    const ClientRun newest = List({Page({9, 9, 8}), Page({9})}, {"--follow"});
    EXPECT_EQ(newest.exit, ExitStatus::kFailed);
    EXPECT_EQ(newest.out, "8,,,,2\n9,,,,1\n9,,,,0\n9,,,,0\n");
    EXPECT_THAT(newest.err, HasSubstr("answers status 1"));
    EXPECT_EQ(List({Page({8, 9})}, {"--follow", "--since", "8"}).out, "8,,,,0\n9,,,,1\n");
    EXPECT_EQ(List({Page({}), Page({9})}, {"-f"}).out, "9,,,,0\n") << "there was none before";
}

TEST(EventWalk, TakesAnAnswerWithoutEventsForAFailure) {
    EXPECT_EQ(List({R"({"status":0})"}, {}).err, "lumctl: the agent's answer holds no events\n");
    EXPECT_EQ(List({"no JSON"}, {}).err, "lumctl: the agent's answer is not JSON\n");
}

}  // namespace
