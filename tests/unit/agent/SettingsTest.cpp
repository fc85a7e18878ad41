#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "agent/Settings.h"
#include "support/TempDirectory.h"

namespace {

class SettingsFile : public testing::Test {
protected:
    Settings Read(const std::string& content) {
        scratch_.Write("agent.ini", content);
        return ReadAgain();
    }
    Settings ReadAgain() {
        return ReadSettings(IniFile(LumString(std::string_view(scratch_ / "agent.ini"))), commandLine_,
                            "/data/");
    }

    TempDirectory scratch_;
    CommandLine commandLine_;
};

TEST_F(SettingsFile, HasADefaultForEverything) {
    const Settings settings = Read("");
    EXPECT_EQ(settings.socketPath, "/data/agent.sock");
    EXPECT_EQ(settings.socketGroup, "");
    EXPECT_EQ(settings.logLevel, LumLogLevel::kPrint);
    EXPECT_EQ(settings.threads, 8U);
    EXPECT_EQ(settings.clientTimeoutMs, 30'000U);
    EXPECT_EQ(settings.logMaxBytes, 10'000'000U);
    EXPECT_EQ(settings.logMaxFiles, 5U);
    EXPECT_TRUE(settings.modules.empty());
    EXPECT_TRUE(settings.warnings.empty());
}

TEST_F(SettingsFile, ReadsEverySetting) {
    const Settings settings = Read(
        "[Agent]\nSocket = /run/a.sock\nSocketGroup = adm\nLogLevel = trace\nThreads = 3\n"
        "ClientTimeoutMs = 250\nLogMaxBytes = 5000\nLogMaxFiles = 2\n");
    EXPECT_EQ(settings.socketPath, "/run/a.sock");
    EXPECT_EQ(settings.socketGroup, "adm");
    EXPECT_EQ(settings.logLevel, LumLogLevel::kTrace);
    EXPECT_EQ(settings.threads, 3U);
    EXPECT_EQ(settings.clientTimeoutMs, 250U);
    EXPECT_EQ(settings.logMaxBytes, 5000U);
    EXPECT_EQ(settings.logMaxFiles, 2U);
    EXPECT_TRUE(settings.warnings.empty());
}

TEST_F(SettingsFile, ListsModulesInFileOrder) {
    const Settings settings = Read("[Modules]\nZebra = z.so\nAnt = /lib/a.so\nMole = m.so\n");
    ASSERT_EQ(settings.modules.size(), 3U);
    EXPECT_EQ(settings.modules[0].first, "Zebra");
    EXPECT_EQ(settings.modules[0].second, "z.so");
    EXPECT_EQ(settings.modules[1].first, "Ant");
    EXPECT_EQ(settings.modules[2].first, "Mole");
}

TEST_F(SettingsFile, TakesARelativeSocketFromTheDataDirectory) {
    EXPECT_EQ(Read("[Agent]\nSocket = sub/a.sock\n").socketPath, "/data/sub/a.sock");
}

TEST_F(SettingsFile, GivesWayToTheCommandLine) {
    commandLine_.socketPath = "b.sock";
    commandLine_.logLevel = LumLogLevel::kError;
    const Settings settings = Read("[Agent]\nSocket = /run/a.sock\nLogLevel = trace\n");
    EXPECT_EQ(settings.socketPath, "b.sock");
    EXPECT_EQ(settings.logLevel, LumLogLevel::kError);
}

TEST_F(SettingsFile, WarnsOfEachValueThatDoesNotFitAndTakesTheDefault) {
    const Settings settings = Read(
        "[Agent]\nLogLevel = loud\nThreads = 0\nClientTimeoutMs = soon\nLogMaxBytes = 999\n"
        "LogMaxFiles = 99999999999\n");
    EXPECT_EQ(settings.logLevel, LumLogLevel::kPrint);
    EXPECT_EQ(settings.threads, 8U);
    EXPECT_EQ(settings.clientTimeoutMs, 30'000U);
    EXPECT_EQ(settings.logMaxBytes, 10'000'000U);
    EXPECT_EQ(settings.logMaxFiles, 5U);
    ASSERT_EQ(settings.warnings.size(), 5U);
    const std::string file = scratch_ / "agent.ini";
    EXPECT_EQ(
        settings.warnings[0],
        (file + ": [Agent] LogLevel is trace, print, warning or error, not 'loud': taken as print").c_str());
    EXPECT_EQ(settings.warnings[1],
              (file + ": [Agent] Threads is a number from 1 to 256, not '0': taken as 8").c_str());
}

TEST_F(SettingsFile, SaysOnceThatThereIsNoFile) {
    const Settings settings = ReadAgain();
    ASSERT_EQ(settings.warnings.size(), 1U);
    EXPECT_EQ(settings.warnings[0],
              ("There is no " + (scratch_ / "agent.ini") + ", so no modules are loaded").c_str());
    EXPECT_EQ(settings.socketPath, "/data/agent.sock");
}

TEST_F(SettingsFile, SaysOnceThatTheFileCannotBeRead) {
    ASSERT_EQ(::mkfifo((scratch_ / "agent.ini").c_str(), 0600), 0);
    const Settings settings = ReadAgain();
    ASSERT_EQ(settings.warnings.size(), 1U);
    EXPECT_EQ(settings.warnings[0].FindFirst("Cannot read "), 0U);
}

TEST_F(SettingsFile, SaysOnceThatTheFileIsHuge) {
    const Settings settings = Read(std::string((4U << 20U) + 1, ';'));
    ASSERT_EQ(settings.warnings.size(), 1U);
    EXPECT_EQ(settings.warnings[0].FindFirst("Cannot read "), 0U);
}

}  // namespace
