#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/ClientError.h"
#include "client/connection/AgentCall.h"
#include "unit/client/AnswerServer.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// What a server's answer to an action comes to.
AgentAnswer CallFor(const std::string& body, int status = 200) {
    const AnswerServer server([&](const auto& /*target*/, const auto& /*body*/) {
        return AnswerServer::Answer{AnswerServer::Reply(body, status)};
    });
    AgentConnection agent({server.GetPath()});
    return CallAction(agent, "Act", nlohmann::ordered_json::object());
}

TEST(AgentCall, SaysWhatAStatusMeans) {
    EXPECT_EQ(CallFor(R"({"status":1})").error, "the action Act answers status 1 (it failed)");
    EXPECT_EQ(CallFor(R"({"status":13})").error,
              "the action Act answers status 13 (refused: the model is unknown, or a value is missing)");
    EXPECT_EQ(CallFor(R"({"status":45001})").error,
              "the action Act answers status 45001 (the same alert was let through within the minimum gap)");
    EXPECT_EQ(CallFor(R"({"status":7})").error, "the action Act answers status 7");
}

TEST(AgentCall, TakesAnAnswerThatIsNoneForAFailure) {
    EXPECT_EQ(CallFor("<html>").error, "the agent's answer is not JSON");
    EXPECT_EQ(CallFor("[]").error, "the agent's answer holds no status");
    EXPECT_EQ(CallFor(R"({"status":"0"})").error, "the agent's answer holds no status");
    EXPECT_EQ(CallFor(R"({"error":"Not now."})", 503).error, "the agent answers: Not now.");
    EXPECT_EQ(CallFor("Bad Gateway", 502).error, "the agent answers HTTP status 502");
    EXPECT_EQ(CallFor("", 502).exit, ExitStatus::kFailed);
}

TEST(AgentCall, TakesMessagesAsTextsAndAsObjects) {
    const AgentAnswer answer = CallFor(R"({"status":0,"messages":["one",{"text":"two"},{"other":1}]})");
    EXPECT_TRUE(answer.IsDone());
    EXPECT_THAT(answer.messages, ElementsAre("one", "two", ""));
    EXPECT_THAT(CallFor(R"({"status":0,"messages":"one"})").messages, IsEmpty());
}

TEST(AgentCall, ThrowsWhatIsRequiredAndNotDoneWithItsReasons) {
    const auto detailsOf = [](const std::string& body) {
        try {
            Required(CallFor(body));
        } catch (const ClientError& error) {
            EXPECT_EQ(error.GetExit(), ExitStatus::kFailed);
            return error.GetDetails();
        }
        return std::vector<std::string>{"nothing was thrown"};
    };
    EXPECT_THAT(detailsOf(R"({"status":1,"messages":["why"]})"), ElementsAre("agent: why"));
    EXPECT_THAT(detailsOf(R"({"status":1})"), ElementsAre("the agent's log says why"));
    EXPECT_THAT(detailsOf("[]"), IsEmpty()) << "no action failed";
}

TEST(AgentCall, FailsInEachFormWhereNoAgentIs) {
    AgentConnection nowhere({"/nowhere/agent.sock"});
    EXPECT_EQ(CallAction(nowhere, "Act", {}).exit, ExitStatus::kNoAgent);
    EXPECT_EQ(CallActionWithText(nowhere, "Act", "{}").exit, ExitStatus::kNoAgent);
    EXPECT_EQ(AskFor(nowhere, "/status").exit, ExitStatus::kNoAgent);
    std::string error;
    EXPECT_FALSE(BeginBatch(nowhere, "Act", "{}\n", error));
    EXPECT_THAT(error, HasSubstr("no agent answers at /nowhere/agent.sock"));
}

TEST(AgentCall, ReadsALineOfABatch) {
    uint64_t number = 9;
    EXPECT_TRUE(ReadBatchAnswer("Act", R"({"line":3,"status":0})", number).IsDone());
    EXPECT_EQ(number, 3U);
    EXPECT_EQ(ReadBatchAnswer("Act", R"({"line":4,"error":"No."})", number).error, "the agent answers: No.");
    EXPECT_EQ(number, 4U);
    EXPECT_EQ(ReadBatchAnswer("Act", "half of a li", number).error, "the agent's answer is not JSON");
    EXPECT_EQ(number, 0U);
}

TEST(AgentCall, EncodesWhatATargetCannotHold) {
    EXPECT_EQ(PercentEncoded("Az09-._~"), "Az09-._~");
    EXPECT_EQ(PercentEncoded("a b/\xC3\xBC?@[{`"), "a%20b%2F%C3%BC%3F%40%5B%7B%60");
}

}  // namespace
