#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/client/AnswerServer.h"
#include "unit/client/RunClient.h"

namespace {

using testing::EndsWith;
using testing::StartsWith;

using Pages = AnswerServer::Pages;

ClientRun Lumctl(const AnswerServer& server, const std::vector<std::string>& words) {
    return RunClient(server.GetPath(), words);
}

TEST(AgentCommands, NoticeASettingThatWasNotKept) {
    const AnswerServer server(Pages{{"/actions/EventLogManagerSetValues", R"({"status":0})"},
                                    {"/actions/EventLogManagerGetValues",
                                     R"({"status":0,"container":{"Values":{"AlertMinimumGap":60}}})"}});
    EXPECT_EQ(Lumctl(server, {"settings", "AlertMinimumGap=60"}).exit, ExitStatus::kDone);
    const ClientRun run = Lumctl(server, {"settings", "AlertMinimumGap=5"});
    EXPECT_EQ(run.exit, ExitStatus::kFailed);
    EXPECT_THAT(run.out, EndsWith("AlertMinimumGap  60\n"));
    EXPECT_EQ(run.err, "lumctl: the agent did not keep AlertMinimumGap; is its ini file writable?\n");
}

TEST(AgentCommands, PromiseNothingOfAnAlertWhereTheAgentDoesNotCount) {
    const AnswerServer server(Pages{{"/actions/EventLogManagerCreateAlert", R"({"status":0})"}});
    EXPECT_EQ(Lumctl(server, {"alert", "Full"}).out,
              "The alert was taken; its repeat within the minimum gap is held back.\n");
}

TEST(AgentCommands, ListNothingWhereTheListIsEmpty) {
    const AnswerServer server(Pages{{"/modules", "[]"}, {"/actions", R"([{"name":5}])"}});
    EXPECT_EQ(Lumctl(server, {"modules"}).out,
              "Module  File  Version  Description\n------  ----  -------  -----------\n");
    EXPECT_EQ(Lumctl(server, {"actions"}).out, "Action  Signature  Module\n------  ---------  ------\n\n");
}

TEST(AgentCommands, ShowTheAnswerToAnyActionAsItCame) {
    const AnswerServer server(Pages{{"/actions/Do%20it", "no JSON"}});
    const ClientRun run = Lumctl(server, {"invoke", "Do it"});
    EXPECT_EQ(run.exit, ExitStatus::kFailed);
    EXPECT_EQ(run.out, "no JSON\n");
    EXPECT_EQ(Lumctl(server, {"invoke", "Do"}).err, "") << "no action is known to be like it";
    EXPECT_THAT(RunClient("/nowhere/agent.sock", {"invoke", "Do"}).err,
                StartsWith("lumctl: no agent answers"));
}

}  // namespace
