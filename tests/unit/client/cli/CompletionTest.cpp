#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "unit/client/AnswerServer.h"
#include "unit/client/RunClient.h"

namespace {

/// What may stand in place of the last of `words`, a line each, where the agent has the models Logon, whose
/// definition it tells, and Lost, whose definition it does not.
class Completion : public testing::Test {
protected:
    [[nodiscard]] std::string Of(std::vector<std::string> words) const {
        words.insert(words.begin(), {"__complete", "--"});
        return RunClient(server_.GetPath(), words).out;
    }

private:
    const AnswerServer server_{[](const std::string& target, const std::string& body) {
        if (target.starts_with("/actions/EventLogManagerGetModelNames")) {
            return AnswerServer::Answer{
                AnswerServer::Reply(R"({"status":0,"container":{"Result":{"ModelName":["Logon","Lost"]}}})")};
        }
        return AnswerServer::Answer{AnswerServer::Reply(
            body.find("Logon") == std::string::npos
                ? R"({"status":0,"container":{}})"
                : R"({"status":0,"container":{"Result":{"ModelDef":{"ModelVars":{"ModelVarName":["User"]}}}}})")};
    }};
};

TEST_F(Completion, BeginsWithTheCommands) {
    EXPECT_EQ(Of({"ev"}), "events\n");
    EXPECT_EQ(Of({}), Of({""}));
    EXPECT_EQ(Of({"help", "ex"}), "export\n");
    EXPECT_EQ(Of({"completion", ""}), "bash\nzsh\nfish\n");
}

TEST_F(Completion, PassesOverOptionsAndTheirValues) {
    EXPECT_EQ(Of({"--socket", "x", "ev"}), "events\n");
    EXPECT_EQ(Of({"--what", "mod"}), "models\nmodel\nmodules\n");
    EXPECT_EQ(Of({"events", "--since", "1h", "Log"}), "Logon\n");
    EXPECT_EQ(Of({"events", "--timeout", "1", "Log"}), "Logon\n");
    EXPECT_EQ(Of({"events", "--desc", "Log"}), "Logon\n") << "a flag has no value";
    EXPECT_EQ(Of({"events", "--what", "Log"}), "Logon\n");
}

TEST_F(Completion, KnowsTheOptionsOfACommand) {
    EXPECT_EQ(Of({"events", "--fo"}), "--follow\n");
    EXPECT_EQ(Of({"--fo"}), "");
    EXPECT_EQ(Of({"evnets", "--so"}), "--socket\n") << "those that every command has";
    EXPECT_EQ(Of({"events", "--output", "j"}), "json\njsonl\n");
}

TEST_F(Completion, NamesModelsAndTheirParameters) {
    EXPECT_EQ(Of({"create", ""}), "Logon\nLost\n");
    EXPECT_EQ(Of({"create", "Logon", ""}), "User=\n");
    EXPECT_EQ(Of({"create", "Logon", "User=ann", "U"}), "User=\n");
    EXPECT_EQ(Of({"create", "Lost", ""}), "");
    EXPECT_EQ(Of({"create", "Nobody", ""}), "") << "a question about it would raise an alert";
    EXPECT_EQ(Of({"model", "Logon", ""}), "") << "nothing more is expected";
    EXPECT_EQ(Of({"modules", ""}), "");
    EXPECT_EQ(Of({"evnets", "Logon", ""}), "");
}

TEST_F(Completion, HasAScriptForEachShell) {
    for (const char* const shell : {"bash", "zsh", "fish"}) {
        EXPECT_NE(RunClient("", {"completion", shell}).out.find("lumctl __complete -- "), std::string::npos)
            << shell;
    }
    EXPECT_EQ(RunClient("", {"completion", "tcsh"}).err, "lumctl: 'tcsh' is not one of bash, zsh, fish\n");
}

}  // namespace
