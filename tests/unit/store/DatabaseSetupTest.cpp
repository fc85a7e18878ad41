#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/database/Database.h"
#include "store/DatabaseSetup.h"
#include "support/TestHost.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class DatabaseSetup : public testing::Test {
protected:
    void WriteIni(const std::string& text) const { host_.Directory().Write(TestHost::kIni, text); }

    const TestHost host_;
};

TEST_F(DatabaseSetup, MakesAPrivateFileWithTheThreeTables) {
    TestHost::Initialise();
    struct stat status {};
    ASSERT_EQ(stat((host_.Directory() / TestHost::kDatabase).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM RegisteredModel"), "0");
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Scheduler"), "1");
    EXPECT_EQ(
        host_.Rows("SELECT FieldName FROM DatabaseInformation WHERE FieldName LIKE 'Database%' ORDER BY 1"),
        "DatabaseBuildNumber\nDatabaseRevision\nDatabaseVersionMajor\nDatabaseVersionMinor");
    EXPECT_EQ(host_.CountLines("trace InitializeDatabase: Entering"), 1U);
    EXPECT_THAT(host_.Said(), IsEmpty());
}

TEST_F(DatabaseSetup, RunsSomeScriptsAtEachStartAndOthersOnce) {
    WriteIni(
        "[SqlRun]\nT = CREATE TABLE IF NOT EXISTS Runs (a)\nEach = INSERT INTO Runs VALUES ('each')\n"
        "[SqlRunOnce]\nOnce = INSERT INTO Runs VALUES ('once')\n");
    TestHost::Initialise();
    InitializeDatabase();
    EXPECT_EQ(host_.Rows("SELECT a, count(*) FROM Runs GROUP BY a ORDER BY a"), "each|2\nonce|1");
}

TEST_F(DatabaseSetup, GoesOnBehindAScriptThatFails) {
    WriteIni("[SqlRun]\nBad = CREATE TABLE\nGood = CREATE TABLE IF NOT EXISTS Good (a)\n");
    TestHost::Initialise();
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Good"), "0");
    EXPECT_THAT(host_.Said(), Contains(StartsWith("error DBConnection: incomplete input")));
}

TEST_F(DatabaseSetup, RunsTheUpgradesAboveTheRecordedVersion) {
    TestHost::Initialise();
    const std::string ini = host_.Directory().Read(TestHost::kIni);
    WriteIni(ini + "\n99.0.0.1 = CREATE TABLE Later (a)\n1.0.0.0 = CREATE TABLE Sooner (a)\n");
    InitializeDatabase();
    EXPECT_EQ(host_.Rows("SELECT name FROM sqlite_master WHERE name IN ('Later', 'Sooner')"), "Later");
    EXPECT_EQ(
        host_.Rows("SELECT FieldValue FROM DatabaseInformation WHERE FieldName = 'DatabaseVersionMajor'"),
        "99");
}

TEST_F(DatabaseSetup, DoesNothingWithoutTheLock) {
    TestHost::Initialise();
    WriteIni("[SqlRun]\nT = CREATE TABLE Late (a)\n");
    const std::size_t started = host_.Log().size();
    {
        const DatabaseLockout lockout;
        InitializeDatabase();
    }
    EXPECT_THAT(host_.Said(started), ElementsAre("error InitializeDatabase: Failed to lock database"));
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM sqlite_master WHERE name = 'Late'"), "0");
}

TEST_F(DatabaseSetup, LeavesAFileThatIsNoDatabaseAsItIs) {
    const std::string text(4096, 'x');
    host_.Directory().Write(TestHost::kDatabase, text);
    TestHost::Initialise();
    EXPECT_THAT(host_.Said(), Contains(AllOf(StartsWith("error DBConnection: cannot open database '"),
                                             HasSubstr("': file is not a database in statement: CREATE"))));
    EXPECT_THAT(host_.Said(), Contains("error LoadRegisteredModels: Failed to load registered models"));
    EXPECT_EQ(host_.Directory().Read(TestHost::kDatabase), text);
    EXPECT_EQ(TestHost::Create("Logon", "{}"), 13U);
}

TEST_F(DatabaseSetup, UsesADatabaseWhoseCheckReportsProblems) {
    host_.StartWith(kLogonDefinition);
    ASSERT_EQ(TestHost::Create("Logon", R"({"User":"ada"})"), 0U);
    // A row that breaks a rule of its table: nothing but the integrity check minds it.
    ASSERT_TRUE(
        host_.Change("PRAGMA writable_schema = ON; UPDATE sqlite_master SET sql = "
                     "replace(sql, 'C_User TEXT', 'C_User TEXT CHECK (C_User = ''bob'')') "
                     "WHERE name = 'Event_Logon'"));
    ASSERT_NE(host_.Rows("PRAGMA integrity_check"), "ok");
    const std::size_t started = host_.Log().size();
    InitializeDatabase();
    EXPECT_THAT(host_.Said(started), IsEmpty());
    EXPECT_EQ(host_.Rows("SELECT C_User FROM Event_Logon"), "ada");
}

TEST_F(DatabaseSetup, CompactsTheFile) {
    host_.StartWith(kLogonDefinition);
    ASSERT_TRUE(host_.Change("CREATE TABLE Big AS SELECT zeroblob(1000000) AS a; DROP TABLE Big"));
    ASSERT_NE(host_.Rows("PRAGMA freelist_count"), "0");
    InitializeDatabase();
    EXPECT_EQ(host_.Rows("PRAGMA freelist_count"), "0");
}

}  // namespace
