#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/client/AnswerServer.h"
#include "unit/client/RunClient.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

using Pages = AnswerServer::Pages;

ClientRun Lumctl(const AnswerServer& server, const std::vector<std::string>& words) {
    return RunClient(server.GetPath(), words);
}

TEST(StatusCommands, TellAnAgentThatIsOlder) {
    const AnswerServer server(Pages{});
    for (const char* const command : {"status", "outbox"}) {
        const ClientRun run = Lumctl(server, {command});
        EXPECT_EQ(run.exit, ExitStatus::kFailed);
        EXPECT_EQ(run.err,
                  "lumctl: this agent is older than its client and does not tell its status; lumctl modules "
                  "shows its "
                  "version\n");
    }
}

TEST(StatusCommands, FindTheOutboxInWhateverPartOfTheStatus) {
    for (const char* const page :
         {R"({"outbox":{"files":0}})", R"({"version":"1","FileStore":{"outbox":{"files":0}},"Other":{}})"}) {
        const AnswerServer server(Pages{{"/status", page}});
        EXPECT_THAT(Lumctl(server, {"outbox"}).out, StartsWith("Outbox     nothing waits to be sent\n"))
            << page;
        EXPECT_EQ(Lumctl(server, {"outbox", "--output", "json"}).out, "{\n  \"files\": 0\n}\n") << page;
    }
    for (const char* const page : {"[]", "{}", R"({"outbox":5})"}) {
        const AnswerServer server(Pages{{"/status", page}});
        const ClientRun run = Lumctl(server, {"outbox"});
        EXPECT_EQ(run.exit, ExitStatus::kFailed) << page;
        EXPECT_THAT(run.err, HasSubstr("the agent does not tell about its outbox")) << page;
    }
}

TEST(StatusCommands, ShowTheStatus) {
    const AnswerServer server(Pages{{"/status", R"({"version":"1"})"}});
    EXPECT_EQ(Lumctl(server, {"status"}).out, "Agent      version 1\n");
    EXPECT_EQ(Lumctl(server, {"status", "--output", "json"}).out, "{\n  \"version\": \"1\"\n}\n");
}

}  // namespace
