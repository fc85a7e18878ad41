#include <atomic>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/core/ActionDb.h"
#include "host/core/LumAgent.h"
#include "host/file/LumFile.h"
#include "support/LogReader.h"
#include "support/TempDirectory.h"

namespace {

LumString Text(const std::string& text) {
    return LumString(std::string_view(text));
}

mode_t ModeOf(const std::string& path) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

class LumAgent : public testing::Test {
protected:
    bool SetUpAgent(const std::string& config = "config", const std::string& data = "data") {
        return LumAgentSetUp({Text(scratch_ / config), Text(scratch_ / data)}, error_);
    }

    /// How often `part` stands in what the agent's context has logged.
    std::size_t SetUpAndCount(const std::string& part) {
        LumString reason;
        EXPECT_TRUE(LumAgentGetDebugContext(nullptr)->OpenFile(Text(scratch_ / "log"), 1 << 20, 1, reason));
        EXPECT_TRUE(SetUpAgent());
        return CountIn(ReadWholeFile(scratch_ / "log"), part);
    }

    TempDirectory scratch_;
    LumString error_;
};

TEST_F(LumAgent, MakesItsDirectoriesForTheOwnerAlone) {
    ASSERT_TRUE(SetUpAgent("a/config", "b/data"));
    EXPECT_EQ(ModeOf(scratch_ / "a/config"), 0700U);
    EXPECT_EQ(ModeOf(scratch_ / "b/data"), 0700U);
    EXPECT_EQ(ModeOf(scratch_ / "b/data/tmp"), 0700U);
}

TEST_F(LumAgent, RemovesWhatAKilledOneLeftUnfinished) {
    for (const char* directory : {"config", "data"}) {
        scratch_.MakeDirectory(directory);
        scratch_.Write(directory + std::string("/.lum-a1b2c3"), "half");
        scratch_.Write(directory + std::string("/kept"), "");
    }
    ASSERT_TRUE(SetUpAgent());
    for (const char* directory : {"config", "data"}) {
        EXPECT_FALSE(scratch_.Has(directory + std::string("/.lum-a1b2c3")));
        EXPECT_TRUE(scratch_.Has(directory + std::string("/kept")));
    }
}

TEST_F(LumAgent, HandsDirectoriesOutWithOneTrailingSeparator) {
    LumString directory;
    ASSERT_TRUE(SetUpAgent("config", "data/"));
    LumAgentGetConfigDir(directory);
    EXPECT_EQ(directory, (scratch_ / "config/").c_str());
    LumAgentGetDataDir(directory);
    EXPECT_EQ(directory, (scratch_ / "data/").c_str());
}

TEST_F(LumAgent, HandsDirectoriesOutThatMayBeDeletedIn) {
    LumString directory;
    ASSERT_TRUE(SetUpAgent("config", "config/../data"));
    LumAgentGetDataDir(directory);
    EXPECT_EQ(directory, (scratch_ / "data/").c_str());
    scratch_.MakeDirectory("data/module");
    EXPECT_TRUE(DirDelete(directory + "module", true, true));
}

TEST_F(LumAgent, PutsTemporaryFilesIntoTheDataDirectory) {
    ASSERT_TRUE(SetUpAgent());
    EXPECT_EQ(GetTempDirectory(), (scratch_ / "data/tmp").c_str());
    LumContainer container;
    container.SetInt32("Number", 1);
    const LumString path = container.SaveToTempFile();
    EXPECT_EQ(path.FindFirst(Text(scratch_ / "data/tmp/")), 0U);
    EXPECT_EQ(ModeOf(path.GetString()), 0600U);
}

TEST_F(LumAgent, TakesDirectoriesThatAreThere) {
    ASSERT_TRUE(SetUpAgent());
    EXPECT_TRUE(SetUpAgent());
}

TEST_F(LumAgent, SaysWhichDirectoryCannotBeMadeAndWhy) {
    scratch_.Write("file", "in the way");
    EXPECT_FALSE(SetUpAgent("file/config", "data"));
    EXPECT_EQ(error_,
              ("Cannot make the directory '" + (scratch_ / "file/config") + "': Not a directory").c_str());
    EXPECT_FALSE(SetUpAgent("config", "file"));
    EXPECT_NE(error_.FindFirst("Cannot make the directory"), LumString::kNotFound);
    scratch_.Write("data/tmp", "in the way");
    EXPECT_FALSE(SetUpAgent());
    EXPECT_NE(error_.FindFirst(Text(scratch_ / "data/tmp")), LumString::kNotFound);
    EXPECT_FALSE(LumAgentSetUp({"", Text(scratch_ / "data")}, error_));
    EXPECT_EQ(error_, "Cannot make the directory '': the path is empty");
}

TEST_F(LumAgent, WarnsOfAnUnknownSynchronousSetting) {
    scratch_.Write("config/agent.ini", "[Database]\nSynchronous = sometimes\n");
    EXPECT_EQ(SetUpAndCount("[Database] Synchronous is 'full' or 'normal', not 'sometimes': taken as full\n"),
              1U);
}

TEST_F(LumAgent, TakesBothSynchronousSettingsInAnyLetterCase) {
    scratch_.Write("config/agent.ini", "[Database]\nSynchronous = Normal\n");
    EXPECT_EQ(SetUpAndCount("Synchronous"), 0U);
    scratch_.Write("config/agent.ini", "[Database]\nSynchronous = FULL\n");
    EXPECT_EQ(SetUpAndCount("Synchronous"), 0U);
}

TEST_F(LumAgent, GivesEveryModuleTheSameLoggingContext) {
    LumAgentHandle one{"One"};
    EXPECT_NE(LumAgentGetDebugContext(nullptr), nullptr);
    EXPECT_EQ(LumAgentGetDebugContext(&one), LumAgentGetDebugContext(nullptr));
}

TEST_F(LumAgent, GivesOutTheSharedIniForChanges) {
    scratch_.Write("config/agent.ini", "[Modules]\nOld = Old.so\nNew = New.so\n");
    ASSERT_TRUE(SetUpAgent());
    EXPECT_TRUE(LumAgentGetIniAndLock().DeleteEntry("Modules", "Old"));
    LumAgentReleaseIni();
    EXPECT_EQ(ReadWholeFile(scratch_ / "config/agent.ini"), "[Modules]\nNew = New.so\n");
}

TEST_F(LumAgent, KeepsOtherThreadsFromTheIniUntilItIsReleased) {
    ASSERT_TRUE(SetUpAgent());
    IniFile& ini = LumAgentGetIniAndLock();
    EXPECT_EQ(&LumAgentGetIniAndLock(), &ini) << "the thread that holds it may take it again";
    LumAgentReleaseIni();
    std::atomic<bool> hasIt = false;
    std::atomic<bool> isReleased = false;
    std::thread other([&] {
        static_cast<void>(LumAgentGetIniAndLock());
        EXPECT_TRUE(isReleased);
        hasIt = true;
        LumAgentReleaseIni();
    });
    EXPECT_TRUE(ini.WriteEntryValue("Agent", "Threads", 3));
    EXPECT_FALSE(hasIt);
    isReleased = true;
    LumAgentReleaseIni();
    other.join();
    EXPECT_TRUE(hasIt);
}

TEST_F(LumAgent, ReleasingTheIniWithoutHavingItDoesNothing) {
    ASSERT_TRUE(SetUpAgent());
    LumAgentReleaseIni();
    static_cast<void>(LumAgentGetIniAndLock());
    LumAgentReleaseIni();
}

}  // namespace
