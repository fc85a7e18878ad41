#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/client/AnswerServer.h"
#include "unit/client/RunClient.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

/// What an import of `lines` comes to where the agent answers each batch so.
ClientRun Import(const std::string& lines, const AnswerServer::Answer& answer, bool isTerminal = false) {
    const AnswerServer server(
        [&answer, pages = VisitPages()](const std::string& target, const std::string& /*body*/) {
            const auto page = pages.find(target.substr(0, target.find('?')));
            return page == pages.end() ? answer : AnswerServer::Answer{AnswerServer::Reply(page->second)};
        });
    return RunClient(server.GetPath(), {"import", "Visit", "-"}, {.input = lines, .isTerminal = isTerminal});
}

const std::string kDone = R"({"line":1,"status":0})";

TEST(Import, SaysOfALineThatTheAgentDidNotAnswerIt) {
    const ClientRun run = Import("{}\n", {AnswerServer::Reply("")});
    EXPECT_EQ(run.exit, ExitStatus::kFailed);
    EXPECT_EQ(run.err, "lumctl: line 1: the agent did not answer it\n");
    EXPECT_EQ(run.out, "0 events imported, 1 line failed\n");
    EXPECT_EQ(Import("{}\n", {AnswerServer::Reply(R"({"line":2,"status":0})"
                                                  "\n")})
                  .err,
              run.err)
        << "the answer to another line";
    EXPECT_EQ(Import("{}\n", {AnswerServer::Reply(kDone)}).err, run.err) << "half an answer";
    EXPECT_EQ(Import("{}\n", {AnswerServer::Reply(kDone + "\n")}).out, "1 event imported, 0 lines failed\n");
}

TEST(Import, SaysWhatTheAgentSaidOfALine) {
    const ClientRun run = Import("{}\n",
                                 {AnswerServer::Reply(R"({"line":1,"status":1,"messages":["no room"]})"
                                                      "\n")},
                                 true);
    EXPECT_THAT(
        run.err,
        HasSubstr("lumctl: line 1: the action EventLogManagerCreateEvent answers status 1 (it failed)\n"
                  "lumctl: agent: no room\n"));
}

TEST(Import, PassesOverALineThatIsTooLong) {
    const ClientRun run =
        Import(std::string((16U << 20U) + 1, 'x') + "\n\n \t\r\n", {AnswerServer::Reply("")});
    EXPECT_EQ(run.exit, ExitStatus::kFailed);
    EXPECT_EQ(run.err, "lumctl: line 1: it is longer than 16 MiB\n");
    EXPECT_EQ(run.out, "0 events imported, 1 line failed\n");
}

TEST(Import, StopsWhereTheAgentIsGoneBeforeItIsAsked) {
    std::string socket;
    const AnswerServer server([&socket, pages = VisitPages()](const std::string& target,
                                                              const std::string& /*body*/) {
        if (target.starts_with("/actions/EventLogManagerGetModel?")) {
            std::filesystem::remove(socket);
            std::string reply = AnswerServer::Reply(pages.at("/actions/EventLogManagerGetModel"));
            return AnswerServer::Answer{reply.insert(reply.find("Content"), "Connection: close\r\n"), true};
        }
        return AnswerServer::Answer{AnswerServer::Reply(pages.at(target.substr(0, target.find('?'))))};
    });
    socket = server.GetPath();
    const ClientRun run = RunClient(socket, {"import", "Visit", "-"}, {.input = "{}\n{}\n"});
    EXPECT_EQ(run.exit, ExitStatus::kNoAgent);
    EXPECT_EQ(run.err,
              "lumctl: line 1: no agent answers at " + socket +
                  " (No such file or directory)\n"
                  "lumctl: whether lines 1 to 2 were taken is not known; --from-line 1 goes on with them\n");
    EXPECT_EQ(run.out, "0 events imported, 1 line failed\n");
}

TEST(Import, CountsForADisabledModelToo) {
    const std::string disabled =
        R"({"status":0,"container":{"Result":{"ModelName":["Visit"],"ModelEnabled":[false]}}})";
    AnswerServer::Pages pages = VisitPages("/actions/EventLogManagerGetModelNames", disabled);
    pages["/batch/EventLogManagerCreateEvent"] = kDone + "\n";
    const AnswerServer server(pages);
    EXPECT_THAT(RunClient(server.GetPath(), {"import", "Visit", "-"}, {.input = "{}"}).out,
                EndsWith("Model 'Visit' is disabled, so the agent dropped these events.\n"));
    EXPECT_EQ(RunClient(server.GetPath(), {"import", "Visit", "-"}).out,
              "0 events imported, 0 lines failed\n");
}

}  // namespace
