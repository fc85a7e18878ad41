#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/client/AnswerServer.h"
#include "unit/client/RunClient.h"

namespace {

using testing::HasSubstr;

TEST(EventCount, TellsWhyItCouldNotCount) {
    const AnswerServer server(
        VisitPages("/actions/EventLogManagerGetEvents", R"({"status":1,"messages":["the disk is gone"]})"));
    const ClientRun run = RunClient(server.GetPath(), {"purge", "Visit"});
    EXPECT_EQ(run.exit, ExitStatus::kFailed);
    EXPECT_EQ(run.err,
              "lumctl: the action EventLogManagerGetEvents answers status 1 (it failed)\n"
              "lumctl: agent: the disk is gone\n");
    const AnswerServer empty(VisitPages("/actions/EventLogManagerGetEvents", R"({"status":0})"));
    EXPECT_THAT(RunClient(empty.GetPath(), {"purge", "Visit", "-n"}).out,
                HasSubstr("Would delete 0 events "));
}

}  // namespace
