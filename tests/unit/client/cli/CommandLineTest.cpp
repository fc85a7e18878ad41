#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "unit/client/RunClient.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

/// What is run without an agent.
ClientRun Lumctl(const std::vector<std::string>& words) {
    return RunClient("/nowhere/agent.sock", words);
}

TEST(CommandLine, HelpsWithTheProgramAndWithACommand) {
    const ClientRun program = Lumctl({"--help"});
    EXPECT_EQ(program.exit, ExitStatus::kDone);
    EXPECT_THAT(program.out, StartsWith("Speaks to a running agent over its control socket.\n\n"
                                        "Usage: lumctl [OPTION]... COMMAND [ARGUMENT]...\n"));
    EXPECT_THAT(program.out, HasSubstr("\nPictures:\n  chart  "));
    EXPECT_THAT(program.out, HasSubstr("\nExit status:\n  0  "));
    EXPECT_EQ(program.out.find("__complete"), std::string::npos) << "a shell's own";
    EXPECT_EQ(Lumctl({"help"}).out, program.out);
    EXPECT_EQ(Lumctl({"help", "events"}).out, Lumctl({"events", "-h"}).out);
    EXPECT_THAT(Lumctl({"--version"}).out, StartsWith("lumctl "));
}

TEST(CommandLine, RefusesAnOptionWithoutACommand) {
    const ClientRun run = Lumctl({"--sokcet"});
    EXPECT_EQ(run.exit, ExitStatus::kWrongCommandLine);
    EXPECT_EQ(run.err,
              "lumctl: there is no option '--sokcet'; did you mean '--socket'?\nlumctl: see lumctl --help\n");
}

TEST(CommandLine, WaitsAsLongAsItIsTold) {
    CommandLine commandLine;
    std::ostringstream said;
    const std::vector<const char*> words{"lumctl", "--timeout", "1.5", "models"};
    EXPECT_FALSE(ParseCommandLine(static_cast<int>(words.size()), words.data(), commandLine, said, said));
    EXPECT_EQ(commandLine.timeout, std::chrono::milliseconds(1500));
    EXPECT_FALSE(commandLine.socket);
    EXPECT_EQ(said.str(), "");
}

TEST(CommandLine, GivesEveryListOfEventsEachForm) {
    for (const char* const command : {"events", "export", "query"}) {
        EXPECT_EQ(Lumctl({command, "X", "--output", "csv"}).err.find("--output"), std::string::npos)
            << command;
    }
    EXPECT_THAT(Lumctl({"--output", "jsonl", "models"}).err,
                StartsWith("lumctl: --output jsonl and csv are for events, export and query\n"));
}

}  // namespace
