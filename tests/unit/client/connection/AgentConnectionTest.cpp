#include <chrono>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/connection/AgentConnection.h"
#include "unit/client/AnswerServer.h"
#include "unit/client/AsNobody.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

using Answer = AnswerServer::Answer;

/// The body of the answer to a request; else why there is none, and after | what had come of it.
std::string Ask(AgentConnection& agent) {
    AgentConnection::Reply reply;
    std::string error;
    return agent.Get("/", reply, error) ? reply.body : error + "|" + reply.body;
}

/// The same for a server that answers every request so.
std::string AskFor(const Answer& answer, std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    const AnswerServer server([&answer](const auto& /*target*/, const auto& /*body*/) { return answer; });
    AgentConnection agent({server.GetPath()}, timeout);
    return Ask(agent);
}

TEST(AgentConnection, SaysHowLongItWaited) {
    EXPECT_THAT(AskFor({""}, std::chrono::milliseconds(230)),
                EndsWith(" did not answer within 0.2 s; --timeout SECONDS waits longer|"));
    EXPECT_THAT(AskFor({"HTTP/1.1 200 -\r\n"}, std::chrono::seconds(1)), HasSubstr(" within 1 s;"));
}

TEST(AgentConnection, TellsAnAnswerThatBrokeOffFromNone) {
    EXPECT_THAT(AskFor({"", true}), EndsWith("closed the connection without an answer (end of stream)|"));
    EXPECT_THAT(AskFor({"HTTP/1.1 200 -\r\nContent-Length: 9\r\n\r\nhalf", true}),
                EndsWith("(partial message)|half"));
    EXPECT_THAT(AskFor({"220 mail.example is ready\r\n\r\n"}), HasSubstr("(bad version)"));
}

TEST(AgentConnection, TakesAnAnswerInPiecesOfAnySize) {
    const std::string body(300000, 'x');
    EXPECT_EQ(AskFor({AnswerServer::Reply(body)}), body);
}

TEST(AgentConnection, ConnectsAnewWhereTheConnectionIsOfNoMoreUse) {
    std::string reply = AnswerServer::Reply("whole");
    const AnswerServer server(
        [&reply](const auto& /*target*/, const auto& /*body*/) { return Answer{reply}; });
    AgentConnection agent({server.GetPath()});
    reply += "more than was announced";
    EXPECT_EQ(Ask(agent), "whole");
    reply = "HTTP/1.1 200 -\r\nConnection: close\r\nContent-Length: 4\r\n\r\nlast";
    EXPECT_EQ(Ask(agent), "last");
    EXPECT_EQ(Ask(agent), "last");
}

TEST(AgentConnection, TriesTheSocketsInTheirOrder) {
    const AnswerServer server(AnswerServer::Pages{{"/", "here"}});
    const std::string nowhere = server.GetPath() + ".not";
    AgentConnection agent({nowhere, server.GetPath()});
    EXPECT_EQ(agent.GetSocketPath(), nowhere);
    EXPECT_EQ(Ask(agent), "here");
    EXPECT_EQ(agent.GetSocketPath(), server.GetPath());

    AgentConnection lost({nowhere, nowhere + "her"});
    EXPECT_EQ(Ask(lost),
              "no agent answers at " + nowhere + " (No such file or directory); no agent answers at " +
                  nowhere +
                  "her (No such file or directory); is lumagent running? (systemctl status lumagent)|");
}

TEST(AgentConnection, SaysWhoMayUseASocketThatItMayNot) {
    const AnswerServer server(AnswerServer::Pages{});
    const std::filesystem::path socket = server.GetPath();
    std::filesystem::permissions(socket.parent_path(), std::filesystem::perms(0755));
    std::filesystem::permissions(socket, std::filesystem::perms::none);
    AgentConnection agent({socket.string()});
    const AsNobody nobody;
    EXPECT_THAT(Ask(agent),
                HasSubstr("no permission to use " + socket.string() + ": it is open to the user '"));
}

}  // namespace
