#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/database/Database.h"
#include "store/DatabaseSetup.h"
#include "store/ModelRegistry.h"
#include "support/LinkedModule.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class DatabaseSetup : public testing::Test, protected LinkedModule {
protected:
    void WriteIni(const std::string& text) const { Directory().Write(kIni, text); }
};

TEST_F(DatabaseSetup, MakesAPrivateFileWithTheThreeTables) {
    Initialise();
    struct stat status {};
    ASSERT_EQ(stat((Directory() / kDatabase).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(Rows("SELECT count(*) FROM RegisteredModel"), "0");
    EXPECT_EQ(Rows("SELECT count(*) FROM Scheduler"), "1");
    EXPECT_EQ(Rows("SELECT FieldName FROM DatabaseInformation WHERE FieldName LIKE 'Database%' ORDER BY 1"),
              "DatabaseBuildNumber\nDatabaseRevision\nDatabaseVersionMajor\nDatabaseVersionMinor");
    EXPECT_EQ(Log().Count("trace InitializeDatabase: Entering"), 1U);
    EXPECT_THAT(Said(), IsEmpty());
}

TEST_F(DatabaseSetup, RunsSomeScriptsAtEachStartAndOthersOnce) {
    WriteIni(
        "[SqlRun]\nT = CREATE TABLE IF NOT EXISTS Runs (a)\nEach = INSERT INTO Runs VALUES ('each')\n"
        "[SqlRunOnce]\nOnce = INSERT INTO Runs VALUES ('once')\n");
    Initialise();
    InitializeDatabase();
    EXPECT_EQ(Rows("SELECT a, count(*) FROM Runs GROUP BY a ORDER BY a"), "each|2\nonce|1");
}

TEST_F(DatabaseSetup, GoesOnBehindAScriptThatFails) {
    WriteIni("[SqlRun]\nBad = CREATE TABLE\nGood = CREATE TABLE IF NOT EXISTS Good (a)\n");
    Initialise();
    EXPECT_EQ(Rows("SELECT count(*) FROM Good"), "0");
    EXPECT_THAT(Said(), Contains(StartsWith("error DBConnection: incomplete input")));
}

TEST_F(DatabaseSetup, RunsItsScriptsOnceTheirFileCanBeRead) {
    const std::string ini = Directory().Read(kIni);
    std::filesystem::remove(Directory() / kIni);
    std::filesystem::create_directory(Directory() / kIni);
    Initialise();
    EXPECT_TRUE(AreDatabaseScriptsDue());
    std::filesystem::remove(Directory() / kIni);
    WriteIni(ini);
    RunDatabaseScripts();
    EXPECT_FALSE(AreDatabaseScriptsDue());
    EXPECT_EQ(Rows("SELECT count(*) FROM Scheduler"), "1");
}

TEST_F(DatabaseSetup, LeavesAWrongScriptToTheNextStart) {
    WriteIni("[SqlRun]\nBad = CREATE TABLE\n");
    Initialise();
    EXPECT_FALSE(AreDatabaseScriptsDue());
}

TEST_F(DatabaseSetup, RunsTheUpgradesAboveTheRecordedVersion) {
    Initialise();
    const std::string ini = Directory().Read(kIni);
    WriteIni(ini + "\n99.0.0.1 = CREATE TABLE Later (a)\n1.0.0.0 = CREATE TABLE Sooner (a)\n");
    InitializeDatabase();
    EXPECT_EQ(Rows("SELECT name FROM sqlite_master WHERE name IN ('Later', 'Sooner')"), "Later");
    EXPECT_EQ(Rows("SELECT FieldValue FROM DatabaseInformation WHERE FieldName = 'DatabaseVersionMajor'"),
              "99");
}

TEST_F(DatabaseSetup, DoesNothingWithoutTheLock) {
    Initialise();
    WriteIni("[SqlRun]\nT = CREATE TABLE Late (a)\n");
    Log().Forget();
    {
        const DatabaseLockout lockout;
        InitializeDatabase();
    }
    EXPECT_THAT(Said(), ElementsAre("error InitializeDatabase: Failed to lock database"));
    EXPECT_EQ(Rows("SELECT count(*) FROM sqlite_master WHERE name = 'Late'"), "0");
}

TEST_F(DatabaseSetup, LeavesAFileThatIsNoDatabaseAsItIs) {
    const std::string text(4096, 'x');
    Directory().Write(kDatabase, text);
    Initialise();
    EXPECT_THAT(Said(), Contains(AllOf(StartsWith("error DBConnection: cannot open database '"),
                                       HasSubstr("': file is not a database in statement: CREATE"))));
    EXPECT_THAT(Said(), Contains("error LoadRegisteredModels: Failed to load registered models"));
    EXPECT_EQ(Directory().Read(kDatabase), text);
    EXPECT_EQ(Create("Logon", "{}"), 13U);
}

TEST_F(DatabaseSetup, UsesADatabaseWhoseCheckReportsProblems) {
    StartWith(kLogon);
    ASSERT_EQ(Create("Logon", R"({"User":"ada"})"), 0U);
    // A row that breaks a rule of its table: nothing but the integrity check minds it.
    Change(
        "PRAGMA writable_schema = ON; UPDATE sqlite_master SET sql = "
        "replace(sql, 'C_User TEXT', 'C_User TEXT CHECK (C_User = ''bob'')') "
        "WHERE name = 'Event_Logon'");
    ASSERT_NE(Rows("PRAGMA integrity_check"), "ok");
    Log().Forget();
    InitializeDatabase();
    EXPECT_THAT(Said(), IsEmpty());
    EXPECT_EQ(Rows("SELECT C_User FROM Event_Logon"), "ada");
}

TEST_F(DatabaseSetup, CompactsTheFile) {
    StartWith(kLogon);
    Change("CREATE TABLE Big AS SELECT zeroblob(1000000) AS a; DROP TABLE Big");
    ASSERT_NE(Rows("PRAGMA freelist_count"), "0");
    InitializeDatabase();
    EXPECT_EQ(std::filesystem::file_size(Directory() / (std::string(kDatabase) + "-wal")), 0U);
    EXPECT_EQ(Rows("PRAGMA freelist_count"), "0");
}

}  // namespace
