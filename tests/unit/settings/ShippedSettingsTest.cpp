#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "settings/ShippedSettings.h"
#include "support/TempDirectory.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

/// A release's ini files in shipped/, a site's in own/.
class ShippedSettingsTest : public testing::Test {
protected:
    ShippedSettingsTest() {
        directory_.MakeDirectory("shipped");
        directory_.MakeDirectory("own");
    }

    void Ship(std::string_view content) { directory_.Write("shipped/x.ini", content); }
    void Have(std::string_view content) { directory_.Write("own/x.ini", content); }
    [[nodiscard]] std::string Own() const { return directory_.Read("own/x.ini"); }
    bool Bring() { return BringSettings(directory_.At("shipped"), directory_.At("own"), error_); }

    TempDirectory directory_;
    LumString error_;
};

TEST_F(ShippedSettingsTest, CopiesAFileThatIsMissing) {
    Ship("; why\n[S]\nKey = 1\n");
    ASSERT_TRUE(Bring()) << error_.GetString();
    EXPECT_EQ(Own(), "; why\n[S]\nKey = 1\n");
    struct stat status = {};
    ASSERT_EQ(::stat((directory_ / "own/x.ini").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(ShippedSettingsTest, LeavesSettingsAndCommentsAsTheSiteHasThem) {
    Ship("[EventLogManager]\nAlertMinimumGap = 60\nEnableUpload = 1\n");
    Have("; ours\n[EventLogManager]\nAlertMinimumGap = 5\n");
    ASSERT_TRUE(Bring()) << error_.GetString();
    EXPECT_EQ(Own(), "; ours\n[EventLogManager]\nAlertMinimumGap = 5\n");
}

TEST_F(ShippedSettingsTest, BringsTheStatementsOfAllScriptSections) {
    Ship("[SqlRun]\nTable = new;\nIndex = added;\n[SqlRunOnce]\nRow = new;\n[SqlUpgrade]\n1.0.0.0 = new;\n");
    Have("[SqlRun]\nTable = old;\n[SqlRunOnce]\nRow = old;\n[SqlUpgrade]\n1.0.0.0 = old;\n");
    ASSERT_TRUE(Bring()) << error_.GetString();
    EXPECT_EQ(
        Own(),
        "[SqlRun]\nTable = new;\nIndex = added;\n[SqlRunOnce]\nRow = new;\n[SqlUpgrade]\n1.0.0.0 = new;\n");
}

TEST_F(ShippedSettingsTest, KeepsTheSitesOwnStatements) {
    Ship("[SqlRun]\nTable = new;\n");
    Have("[SqlRun]\nSite = ours;\nTable = old;\n[SqlUpgrade]\n11.0.0.0 = ours;\n");
    ASSERT_TRUE(Bring()) << error_.GetString();
    EXPECT_EQ(Own(), "[SqlRun]\nSite = ours;\nTable = new;\n[SqlUpgrade]\n11.0.0.0 = ours;\n");
}

TEST_F(ShippedSettingsTest, LeavesAFileAloneThatIsUpToDate) {
    Ship("[SqlRun]\nTable = new;\n");
    Have("[SqlRun]\nTable = new;\n");
    const auto before = std::filesystem::last_write_time(directory_ / "own/x.ini");
    ASSERT_TRUE(Bring()) << error_.GetString();
    EXPECT_EQ(std::filesystem::last_write_time(directory_ / "own/x.ini"), before);
}

TEST_F(ShippedSettingsTest, BringsIniFilesOnly) {
    directory_.Write("shipped/notes.txt", "text");
    ASSERT_TRUE(Bring()) << error_.GetString();
    EXPECT_FALSE(directory_.Has("own/notes.txt"));
}

TEST_F(ShippedSettingsTest, NamesWhatCannotBeReadAndDoesTheOthers) {
    Ship("[SqlRun]\nTable = new;\n");
    directory_.Write("shipped/a.ini", "[SqlRun]\nTable = new;\n");
    directory_.MakeDirectory("own/a.ini");
    EXPECT_FALSE(Bring());
    EXPECT_THAT(error_.GetString(), HasSubstr("own/a.ini"));
    EXPECT_EQ(Own(), "[SqlRun]\nTable = new;\n");
}

TEST_F(ShippedSettingsTest, NamesTheTargetThatCannotBeWritten) {
    Ship("[S]\n");
    EXPECT_FALSE(BringSettings(directory_.At("shipped"), directory_.At("absent"), error_));
    EXPECT_THAT(error_.GetString(), HasSubstr("absent/x.ini"));
    EXPECT_THAT(error_.GetString(), EndsWith("No such file or directory"));
}

TEST_F(ShippedSettingsTest, NamesADirectoryThatIsNotThere) {
    EXPECT_FALSE(BringSettings(directory_.At("nothing"), directory_.At("own"), error_));
    EXPECT_THAT(error_.GetString(), HasSubstr("nothing"));
}

}  // namespace
