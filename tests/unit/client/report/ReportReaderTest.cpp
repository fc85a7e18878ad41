#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/client/AnswerServer.h"
#include "unit/client/RunClient.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

/// An agent whose model Visit has `events` events from the beginning of 1970 on, each of another visitor.
AnswerServer::Routine Visitors(int events) {
    return [events, pages = VisitPages()](const std::string& target, const std::string& body) {
        const auto page = pages.find(target.substr(0, target.find('?')));
        if (page != pages.end()) {
            return AnswerServer::Answer{AnswerServer::Reply(page->second)};
        }
        std::string dates;
        std::string visitors;
        const bool isFirst = body.find("PageNumber") == std::string::npos;
        for (int i = 0; i < (isFirst ? events : 0); ++i) {
            dates += (i == 0 ? "" : ",") + std::to_string(i);
            visitors += (i == 0 ? "\"v" : ",\"v") + std::to_string(i) + "\"";
        }
        return AnswerServer::Answer{AnswerServer::Reply(
            R"({"status":0,"container":{"Result":{"EventCount":)" + std::to_string(events) +
            (dates.empty() ? "" : R"(,"EventDate":[)" + dates + R"(],"Who":[)" + visitors + "]") + "}}}")};
    };
}

std::string Report(const AnswerServer& server) {
    const ClientRun run = RunClient(server.GetPath(), {"report", "-", "--since", "0", "--until", "7200"});
    EXPECT_EQ(run.exit, ExitStatus::kDone) << run.err;
    EXPECT_THAT(run.out, EndsWith("</html>\n"));
    return run.out;
}

TEST(ReportReader, CountsTheValuesOfAParameterUnlessNearlyEachIsAnother) {
    const std::string six = Report(AnswerServer(Visitors(6)));
    EXPECT_THAT(six, HasSubstr("<h3>Who</h3>"));
    EXPECT_THAT(six, Not(HasSubstr("(others)")));
    const std::string eight = Report(AnswerServer(Visitors(8)));
    EXPECT_THAT(eight, HasSubstr("<span class=\"name\">(others)</span>"));
    EXPECT_THAT(Report(AnswerServer(Visitors(2100))), Not(HasSubstr("<h3>Who</h3>")));
    EXPECT_THAT(Report(AnswerServer(Visitors(0))), HasSubstr("No model has an event of this time."));
}

TEST(ReportReader, LeavesOutAModelWithoutADefinition) {
    const AnswerServer server(VisitPages("/actions/EventLogManagerGetModel", R"({"status":0})"));
    EXPECT_THAT(Report(server), HasSubstr("0 of 0"));
}

TEST(ReportReader, ShowsSizesWhereTheyAreTold) {
    AnswerServer::Pages pages = VisitPages("/actions/EventLogManagerGetEvents",
                                           R"({"status":0,"container":{"Result":{"EventCount":3}}})");
    pages["/status"] = R"({"alerts":{"sent":4,"heldBack":"many"},"outbox":{"files":2,"bytes":2048}})";
    const AnswerServer server(pages);
    server.GetScratch().Write("EventLogManager/EventLogManager.sqlite3", std::string(3000, 'x'));
    const std::string page = Report(server);
    EXPECT_THAT(page, HasSubstr("The database takes 2.9 KiB. 2 files of 2.0 KiB wait to be sent."));
    EXPECT_THAT(page, HasSubstr("<b>4</b><span>alerts sent since the start</span>"));
}

}  // namespace
