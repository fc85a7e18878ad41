#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/ModelText.h"
#include "unit/client/AnswerServer.h"
#include "unit/client/RunClient.h"

namespace {

using testing::HasSubstr;

/// What a reload comes to where the file New.xml defines the model New and the agent says `messages`, a list,
/// while its models stay the same.
ClientRun Reload(const std::string& messages, const std::string& output = "table") {
    const AnswerServer server(
        VisitPages("/actions/EventLogManagerReloadModels", R"({"status":0,"messages":)" + messages + "}"));
    server.GetScratch().Write("EventLogManager/models/New.xml",
                              Definition({.name = "New", .params = {{.name = "P"}}}));
    server.GetScratch().Write("EventLogManager/models/notes.txt", "");
    return RunClient(server.GetPath(), {"reload", "--output", output});
}

TEST(ReloadCommand, GivesEachMessageToTheFileThatItIsAbout) {
    const ClientRun run = Reload(R"(["New.xml is bad","Model 'New' is bad","something else"])");
    EXPECT_EQ(run.exit, ExitStatus::kFailed);
    EXPECT_EQ(run.out, "New.xml: refused\n    New.xml is bad\n    Model 'New' is bad\nsomething else\n");
    EXPECT_THAT(
        Reload(R"(["something else"])", "json").out,
        HasSubstr("\"result\": \"refused\",\n      \"messages\": [],\n      \"faults\": []\n    }\n  ],\n"
                  "  \"messages\": [\n    \"something else\"\n  ]\n"));
}

TEST(ReloadCommand, SaysWhatToDoWithAFileThatIsRefused) {
    EXPECT_EQ(Reload("[]").out, "New.xml: refused\n    the agent's log shows why\n");
    const std::string stays =
        "    the name stays taken until the agent starts again: correct the file, then restart it\n";
    EXPECT_THAT(Reload(R"(["New.xml: it already exists in statement: CREATE TABLE"])").out, HasSubstr(stays));
    EXPECT_THAT(Reload(R"(["Model 'New' makes reference to unknown model"])").out, HasSubstr(stays));
}

TEST(ReloadCommand, TakesAModelThatIsGoneForARefusal) {
    const AnswerServer server([listed = 0](const std::string& target, const std::string& /*body*/) mutable {
        const bool isList = target.starts_with("/actions/EventLogManagerGetModelNames");
        return AnswerServer::Answer{AnswerServer::Reply(
            isList && listed++ == 0 ? R"({"status":0,"container":{"Result":{"ModelName":["Visit"]}}})"
                                    : R"({"status":0})")};
    });
    const ClientRun run = RunClient(server.GetPath(), {"reload"});
    EXPECT_EQ(run.exit, ExitStatus::kFailed);
    EXPECT_EQ(run.out, "The model files were read; there was none to take in.\n");
}

TEST(ReloadCommand, ShowsWhatWasTakenIn) {
    const AnswerServer server(VisitPages("/actions/EventLogManagerReloadModels", R"({"status":0})"));
    const std::string file = server.GetScratch().Write(
        "EventLogManager/models/Visit.xml", Definition({.name = "Visit", .params = {{.name = "P"}}}));
    EXPECT_EQ(RunClient(server.GetPath(), {"reload"}).out,
              "Visit.xml: refused\n    the agent's log shows why\n")
        << "the file is still there";
}

}  // namespace
