#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/client/AnswerServer.h"
#include "unit/client/RunClient.h"

namespace {

using testing::EndsWith;

const ClientTerminal kYes{.input = "yes\n", .isTerminal = true};

/// An agent whose model Visit has 1,500 events, the last 300 of them after what `lastUpload` says was
/// uploaded, where it says so. Whatever it is to delete stays.
AnswerServer::Routine Keeper(const std::string& status) {
    return [status, pages = VisitPages()](const std::string& target, const std::string& body) {
        constexpr int kEvents = 1500;
        const auto page = pages.find(target.substr(0, target.find('?')));
        if (page != pages.end()) {
            return AnswerServer::Answer{AnswerServer::Reply(page->second)};
        }
        if (target == "/status") {
            return AnswerServer::Answer{AnswerServer::Reply(status)};
        }
        if (target.starts_with("/actions/EventLogManagerGetEvents")) {
            const std::size_t at = body.find("\"PageNumber\":");
            const int place = at == std::string::npos ? 0 : std::atoi(body.c_str() + at + 13) - 1;
            return AnswerServer::Answer{AnswerServer::Reply(
                R"({"status":0,"container":{"Result":{"EventCount":)" + std::to_string(kEvents) +
                (place < kEvents ? R"(,"EventDate":[)" + std::to_string(place) + "]" : "") + "}}}")};
        }
        return AnswerServer::Answer{AnswerServer::Reply(R"({"status":0,"messages":["why not"]})")};
    };
}

std::string Uploaded(const std::string& lastUpload) {
    return R"({"models":[{"name":"Other"},{"name":"Visit")" + lastUpload + "}]}";
}

/// What a dry run says would go.
std::string Doomed(const std::string& status) {
    const AnswerServer server(Keeper(status));
    return RunClient(server.GetPath(), {"purge", "Visit", "--dry-run"}).out;
}

TEST(DeletionCommands, CountWhatWasNotUploaded) {
    EXPECT_EQ(Doomed(Uploaded(R"(,"lastUpload":1200)")),
              "Would delete 1,500 events (300 of them not uploaded) of model 'Visit'.\n");
    EXPECT_EQ(Doomed(Uploaded(R"(,"lastUpload":1500)")),
              "Would delete 1,500 events (all of them uploaded) of model 'Visit'.\n");
    EXPECT_EQ(Doomed(Uploaded("")),
              "Would delete 1,500 events (1,500 of them not uploaded) of model 'Visit'.\n");
    EXPECT_EQ(Doomed(R"({"models":[]})"), "Would delete 1,500 events of model 'Visit'.\n");
    EXPECT_EQ(Doomed("{}"), "Would delete 1,500 events of model 'Visit'.\n");
}

TEST(DeletionCommands, CountForPrograms) {
    const AnswerServer server(Keeper(Uploaded(R"(,"lastUpload":1200)")));
    EXPECT_EQ(
        RunClient(server.GetPath(), {"purge", "Visit", "-n", "--output", "json", "--before", "1300"}).out,
        "{\n  \"events\": 1300,\n  \"notUploaded\": 100\n}\n");
    EXPECT_EQ(
        RunClient(server.GetPath(), {"purge", "Visit", "-n", "--output", "json", "--before", "1000"}).out,
        "{\n  \"events\": 1000,\n  \"notUploaded\": 0\n}\n");
    const AnswerServer silent(Keeper("{}"));
    EXPECT_EQ(RunClient(silent.GetPath(), {"purge", "Visit", "-n", "--output", "json"}).out,
              "{\n  \"events\": 1500\n}\n");
}

TEST(DeletionCommands, AskOnATerminal) {
    const AnswerServer server(Keeper("{}"));
    const ClientRun done = RunClient(server.GetPath(), {"purge", "Visit"}, kYes);
    EXPECT_EQ(done.err,
              "1,500 events of model 'Visit' before now would be deleted for good. Delete them? [y/N] ");
    EXPECT_EQ(done.out, "Events of model 'Visit' before now are queued for deletion.\n");
    for (const char* const input : {"Y\n", "y"}) {
        EXPECT_EQ(RunClient(server.GetPath(), {"purge", "Visit"}, {.input = input, .isTerminal = true}).exit,
                  ExitStatus::kDone);
    }
    for (const char* const input : {"", "\n", "n\n", "yes, please\n"}) {
        const ClientRun run =
            RunClient(server.GetPath(), {"purge", "Visit"}, {.input = input, .isTerminal = true});
        EXPECT_EQ(run.exit, ExitStatus::kFailed) << input;
        EXPECT_THAT(run.err, EndsWith("[y/N] lumctl: nothing was deleted\n")) << input;
    }
}

TEST(DeletionCommands, NoticeAModelThatStays) {
    const AnswerServer server(Keeper("{}"));
    const ClientRun run = RunClient(server.GetPath(), {"delete", "Visit", "--yes"});
    EXPECT_EQ(run.exit, ExitStatus::kFailed);
    EXPECT_EQ(run.err, "lumctl: model 'Visit' could not be deleted\nlumctl: agent: why not\n");
    const AnswerServer silent(VisitPages("/actions/EventLogManagerDeleteModels", R"({"status":0})"));
    EXPECT_EQ(RunClient(silent.GetPath(), {"delete", "Visit", "-y"}).err,
              "lumctl: model 'Visit' could not be deleted; the agent's log says why\n");
}

}  // namespace
