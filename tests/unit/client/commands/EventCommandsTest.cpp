#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/client/AnswerServer.h"
#include "unit/client/RunClient.h"

namespace {

using testing::EndsWith;

TEST(EventCommands, SayThatAnAgentTellsNoDefinition) {
    const AnswerServer server(VisitPages("/actions/EventLogManagerGetModel", R"({"status":0})"));
    for (const char* const command : {"model", "events", "export", "chart", "create"}) {
        const ClientRun run = RunClient(server.GetPath(), {command, "Visit"});
        EXPECT_EQ(run.exit, ExitStatus::kFailed) << command;
        EXPECT_EQ(run.err, "lumctl: the agent's answer holds no definition of model 'Visit'\n") << command;
    }
}

TEST(EventCommands, TellProgramsOfAnEventThatIsDropped) {
    AnswerServer::Pages pages =
        VisitPages("/actions/EventLogManagerGetModelNames",
                   R"({"status":0,"container":{"Result":{"ModelName":["Visit"],"ModelEnabled":[false]}}})");
    pages["/actions/EventLogManagerCreateEvent"] = R"({"status":0})";
    const AnswerServer server(pages);
    EXPECT_EQ(RunClient(server.GetPath(), {"create", "Visit", "Who=ann", "--output", "json"}).out,
              "{\n  \"status\": 0,\n  \"stored\": false\n}\n");
}

TEST(EventCommands, ExportToTheFileThatIsAskedFor) {
    const AnswerServer server(
        VisitPages("/actions/EventLogManagerGetEvents",
                   R"({"status":0,"container":{"Result":{"EventCount":2,"EventDate":[1,2],"Long":[0,1]}}})"));
    const std::string path = server.GetScratch() / "events";
    const ClientRun run =
        RunClient(server.GetPath(), {"export", "Visit", "--file", path}, {.isTerminal = true});
    EXPECT_THAT(run.err, EndsWith("2 events written to " + path + "\n"));
    EXPECT_EQ(ReadWholeFile(path), "{\"EventDate\":1,\"Long\":0}\n{\"EventDate\":2,\"Long\":1}\n");
    EXPECT_EQ(RunClient(server.GetPath(), {"export", "Visit"}).out, ReadWholeFile(path));
    EXPECT_EQ(RunClient(server.GetPath(), {"export", "Visit", "--file", "/dev/full"}).err,
              "lumctl: /dev/full: it could not be written whole\n");
}

}  // namespace
