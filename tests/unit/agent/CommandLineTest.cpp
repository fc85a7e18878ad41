#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "agent/CommandLine.h"
#include "support/AgentProcess.h"

namespace {

class CommandLineWords : public testing::Test {
protected:
    std::optional<int> Read(std::vector<const char*> words) {
        words.insert(words.begin(), "lumagent");
        return ReadCommandLine(static_cast<int>(words.size()), words.data(), commandLine_);
    }

    CommandLine commandLine_;
};

TEST_F(CommandLineWords, NeedsBothDirectoriesAlone) {
    EXPECT_EQ(Read({"--config-dir", "c", "--data-dir", "d"}), std::nullopt);
    EXPECT_EQ(commandLine_.configDirectory, "c");
    EXPECT_EQ(commandLine_.dataDirectory, "d");
    EXPECT_FALSE(commandLine_.socketPath.has_value());
    EXPECT_FALSE(commandLine_.logLevel.has_value());
}

TEST_F(CommandLineWords, LooksForModulesBesideTheDirectoryOfTheBinary) {
    EXPECT_EQ(Read({"--config-dir", "c", "--data-dir", "d"}), std::nullopt);
    const std::string binaries = BinaryDirectory();
    EXPECT_EQ(commandLine_.moduleDirectory, binaries.substr(0, binaries.rfind('/')) + "/modules");
}

TEST_F(CommandLineWords, ReadsEveryOption) {
    EXPECT_EQ(Read({"--config-dir", "c", "--data-dir", "d", "--module-dir", "m", "--socket", "s",
                    "--log-level", "warning"}),
              std::nullopt);
    EXPECT_EQ(commandLine_.moduleDirectory, "m");
    EXPECT_EQ(commandLine_.socketPath, "s");
    EXPECT_EQ(commandLine_.logLevel, LumLogLevel::kWarning);
}

TEST_F(CommandLineWords, RefusesAWrongCommandLineWithStatusTwo) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(Read({}), 2);
    EXPECT_EQ(Read({"--config-dir", "c"}), 2);
    EXPECT_EQ(Read({"--config-dir", "c", "--data-dir", "d", "--log-level", "loud"}), 2);
    EXPECT_EQ(Read({"--config-dir", "c", "--data-dir", "d", "--wrong"}), 2);
    EXPECT_EQ(Read({"--config-dir", "c", "--data-dir", "d", "extra"}), 2);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("--data-dir is required"), std::string::npos);
}

TEST_F(CommandLineWords, ExplainsItselfWithStatusZero) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(Read({"--help"}), 0);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("--module-dir"), std::string::npos);
}

}  // namespace
