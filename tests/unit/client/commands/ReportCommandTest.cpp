#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/client/AnswerServer.h"
#include "unit/client/RunClient.h"

namespace {

using testing::EndsWith;
using testing::StartsWith;

TEST(ReportCommand, SaysWhereThePageCouldNotBeWritten) {
    const AnswerServer server(VisitPages("/actions/EventLogManagerGetEvents",
                                         R"({"status":0,"container":{"Result":{"EventCount":0}}})"));
    const ClientRun run = RunClient(server.GetPath(), {"report", "/dev/full"}, {.isTerminal = true});
    EXPECT_EQ(run.exit, ExitStatus::kFailed);
    EXPECT_THAT(run.err, EndsWith("lumctl: /dev/full: it could not be written whole\n"));
}

TEST(ReportCommand, EndsWithTheReasonWhereTheAgentFails) {
    const AnswerServer server(VisitPages("/actions/EventLogManagerGetEvents", R"({"status":1})"));
    const ClientRun run = RunClient(server.GetPath(), {"report", "-"});
    EXPECT_EQ(run.exit, ExitStatus::kFailed);
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err,
                StartsWith("lumctl: the action EventLogManagerGetEvents answers status 1 (it failed)\n"));
}

}  // namespace
