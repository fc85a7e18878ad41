#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/database/Database.h"
#include "host/text/LumMd5.h"
#include "support/TestDatabase.h"

namespace {

using Lines = std::vector<std::string>;

class IniScriptsTest : public testing::Test {
protected:
    void WriteIni(const std::string& text) { database_.Directory().Write("scripts.ini", text); }

    bool RunScripts(bool once) {
        DBConnection connection(database_.Pool());
        return connection.RunIniScripts(database_.Directory().At("scripts.ini"), "Scripts", once);
    }

    TestDatabase database_;
};

TEST_F(IniScriptsTest, RunsTheEntriesInFileOrderEachTime) {
    WriteIni(
        "[Scripts]\nSecond = CREATE TABLE IF NOT EXISTS t (a, b TEXT DEFAULT 'x;y');\n"
        "First = INSERT INTO t (a) VALUES (1);\n[Other]\nThird = DROP TABLE t\n");
    EXPECT_TRUE(RunScripts(false));
    EXPECT_TRUE(RunScripts(false));
    EXPECT_EQ(database_.Rows("SELECT a, b FROM t"), "1|x;y\n1|x;y");
    EXPECT_EQ(database_.Rows("SELECT count(*) FROM sqlite_master"), "1");
    EXPECT_EQ(database_.Lines(), Lines{});
}

TEST_F(IniScriptsTest, RunsTheOthersWhereOneFails) {
    WriteIni(
        "[Scripts]\na = CREATE TABLE t (a)\nb = INSERT INTO u VALUES (1)\nc = INSERT INTO t VALUES (1)\n");
    EXPECT_FALSE(RunScripts(false));
    EXPECT_EQ(database_.Rows("SELECT a FROM t"), "1");
    EXPECT_EQ(database_.Lines(),
              Lines{"error Test DBConnection: no such table: u in statement: INSERT INTO u VALUES (?)"});
}

TEST_F(IniScriptsTest, DoesNothingWithoutFileOrSection) {
    EXPECT_TRUE(RunScripts(false));
    EXPECT_TRUE(RunScripts(true));
    WriteIni("[Other]\na = DROP TABLE t\n");
    EXPECT_TRUE(RunScripts(true));
    EXPECT_EQ(database_.Lines(), Lines{});
    EXPECT_EQ(database_.Directory().CountEntries(), 1U);
}

TEST_F(IniScriptsTest, RemembersAnEntryThatIsToRunOnce) {
    WriteIni("[Scripts]\nTable = CREATE TABLE t (a)\nIt's = INSERT INTO t VALUES ('it''s')\n");
    EXPECT_TRUE(RunScripts(true));
    EXPECT_TRUE(RunScripts(true));
    EXPECT_EQ(database_.Rows("SELECT a FROM t"), "it's");
    const std::string expected = "Scripts|It's|" +
                                 std::string(MD5HashHex("INSERT INTO t VALUES ('it''s')").View()) +
                                 "\nScripts|Table|" + std::string(MD5HashHex("CREATE TABLE t (a)").View());
    EXPECT_EQ(database_.Rows("SELECT Section, Name, Checksum FROM IniScriptLog ORDER BY Name"), expected);
    EXPECT_EQ(database_.Rows("SELECT count(*) FROM IniScriptLog WHERE abs(RunTime - strftime('%s')) > 60"),
              "0");
    EXPECT_EQ(database_.Lines(), Lines{});
}

TEST_F(IniScriptsTest, KnowsAnEntryWhoseNameIsWrittenOtherwise) {
    WriteIni("[Scripts]\nTable = CREATE TABLE t (a)\n");
    EXPECT_TRUE(RunScripts(true));
    WriteIni("[SCRIPTS]\nTABLE = CREATE TABLE t (a)\n");
    EXPECT_TRUE(RunScripts(true));
    EXPECT_EQ(database_.Lines(), Lines{});
}

TEST_F(IniScriptsTest, WarnsOfARememberedEntryThatHasChanged) {
    WriteIni("[Scripts]\nTable = CREATE TABLE t (a)\n");
    EXPECT_TRUE(RunScripts(true));
    WriteIni("[Scripts]\nTable = CREATE TABLE u (a)\n");
    EXPECT_TRUE(RunScripts(true));
    EXPECT_EQ(database_.Lines(), Lines{"warning Test RunIniScripts: Entry 'Table' of section 'Scripts' has "
                                       "changed since it was run; it is not run again"});
    EXPECT_FALSE(database_.Run("SELECT * FROM u"));
}

TEST_F(IniScriptsTest, TriesAnEntryAgainThatFailed) {
    WriteIni("[Scripts]\nRow = INSERT INTO t VALUES (1)\nOther = CREATE TABLE u (a)\n");
    EXPECT_FALSE(RunScripts(true));
    EXPECT_EQ(database_.Lines(),
              Lines{"error Test DBConnection: no such table: t in statement: INSERT INTO t VALUES (?)"});
    EXPECT_TRUE(database_.Run("CREATE TABLE t (a)"));
    EXPECT_TRUE(RunScripts(true));
    EXPECT_TRUE(RunScripts(true));
    EXPECT_EQ(database_.Rows("SELECT a FROM t"), "1");
}

TEST_F(IniScriptsTest, UndoesAStatementThatItCannotRemember) {
    WriteIni("[Scripts]\nTable = CREATE TABLE t (a)\n");
    EXPECT_TRUE(
        database_.Run("CREATE TABLE IniScriptLog (Section, Name, Checksum, RunTime CHECK (RunTime < 0))"));
    EXPECT_FALSE(RunScripts(true));
    EXPECT_EQ(database_.Rows("SELECT name FROM sqlite_master"), "IniScriptLog");
    EXPECT_EQ(database_.Lines().size(), 1U);
}

TEST_F(IniScriptsTest, FailsWhereItCannotReadWhatHasRun) {
    WriteIni("[Scripts]\nTable = CREATE TABLE t (a)\n");
    EXPECT_TRUE(database_.Run("CREATE TABLE IniScriptLog (Other)"));
    EXPECT_FALSE(RunScripts(true));
    EXPECT_EQ(database_.Rows("SELECT name FROM sqlite_master"), "IniScriptLog");
}

TEST_F(IniScriptsTest, FailsWhereTheDatabaseCannotBeOpened) {
    WriteIni("[Scripts]\na = CREATE TABLE t (a)\nb = CREATE TABLE u (a)\n");
    database_.Select(database_.Directory().At("nowhere/test.sqlite3"));
    EXPECT_FALSE(RunScripts(true));
    EXPECT_EQ(database_.Lines().size(), 1U);
    EXPECT_FALSE(RunScripts(false));
    EXPECT_EQ(database_.Lines().size(), 3U);
}

using Progress = std::vector<std::pair<uint32_t, uint32_t>>;
Progress progressSeen;

class IniScriptsUpgradeTest : public testing::Test {
protected:
    IniScriptsUpgradeTest() { progressSeen.clear(); }

    void RecordVersion(const std::vector<std::string>& parts, const std::string& type = "TEXT") {
        const char* const names[] = {"DatabaseVersionMajor", "DatabaseVersionMinor", "DatabaseRevision",
                                     "DatabaseBuildNumber"};
        EXPECT_TRUE(database_.Run(
            LumString("CREATE TABLE DatabaseInformation (FieldName TEXT, FieldValue " + type + ")")));
        for (std::size_t i = 0; i < parts.size(); ++i) {
            EXPECT_TRUE(database_.Run(LumString("INSERT INTO DatabaseInformation VALUES ('" +
                                                std::string(names[i]) + "', '" + parts[i] + "')")));
        }
        EXPECT_TRUE(database_.Run("CREATE TABLE Steps (Step)"));
    }

    void WriteIni(const std::vector<std::string>& names) {
        std::string text = "[Upgrade]\n";
        for (const std::string& name : names) {
            text += name + " = INSERT INTO Steps VALUES ('" + name + "')\n";
        }
        database_.Directory().Write("scripts.ini", text);
    }

    bool Upgrade() {
        DBConnection connection(database_.Pool());
        return connection.RunUpgrade(
            "DatabaseInformation", "FieldName", "FieldValue", database_.Directory().At("scripts.ini"),
            "Upgrade", [](uint32_t done, uint32_t total) { progressSeen.emplace_back(done, total); });
    }

    std::string Version() {
        return database_.Rows("SELECT group_concat(FieldValue, '.') FROM DatabaseInformation");
    }
    std::string Steps() { return database_.Rows("SELECT Step FROM Steps ORDER BY rowid"); }

    /// The lines above the print level.
    Lines Complaints() {
        Lines lines;
        for (const std::string& line : database_.Lines()) {
            if (!line.starts_with("print ")) {
                lines.push_back(line);
            }
        }
        return lines;
    }

    TestDatabase database_;
};

TEST_F(IniScriptsUpgradeTest, RunsWhatLiesAboveTheRecordedVersionInAscendingOrder) {
    RecordVersion({"6", "2", "0", "0"});
    WriteIni({"10.0.0.0", "6.2.0.0", "9.0.0.0", "6.2.0.10", "6.1.9.9", "6.2.0.9", "5.9.9.9"});
    EXPECT_TRUE(Upgrade());
    EXPECT_EQ(Steps(), "6.2.0.9\n6.2.0.10\n9.0.0.0\n10.0.0.0");
    EXPECT_EQ(Version(), "10.0.0.0");
    EXPECT_EQ(progressSeen, (Progress{{1, 4}, {2, 4}, {3, 4}, {4, 4}}));
    EXPECT_EQ(database_.Lines().back(), "print Test RunUpgrade: The database is at version 10.0.0.0");
    EXPECT_TRUE(Upgrade());
    EXPECT_EQ(progressSeen.size(), 4U);
    EXPECT_EQ(Complaints(), Lines{});
}

TEST_F(IniScriptsUpgradeTest, RunsTheEntriesOfOneVersionInFileOrder) {
    RecordVersion({"1", "0", "0", "0"});
    WriteIni({"2.0.0.0-z", "3.0.0.0", "2.0.0.0-a", "2.0.0.0", "2.0.0.0-with-more"});
    EXPECT_TRUE(Upgrade());
    EXPECT_EQ(Steps(), "2.0.0.0-z\n2.0.0.0-a\n2.0.0.0\n2.0.0.0-with-more\n3.0.0.0");
    EXPECT_EQ(progressSeen, (Progress{{1, 2}, {2, 2}}));
}

TEST_F(IniScriptsUpgradeTest, RecordsWholeNumbersInColumnsOfAnyType) {
    for (const auto& [type, stored] : {std::pair("TEXT", "text"), std::pair("INTEGER", "integer")}) {
        EXPECT_TRUE(database_.Run("DROP TABLE IF EXISTS DatabaseInformation"));
        EXPECT_TRUE(database_.Run("DROP TABLE IF EXISTS Steps"));
        RecordVersion({"6", "2", "0", "0"}, type);
        WriteIni({"6.3.1.4"});
        EXPECT_TRUE(Upgrade());
        EXPECT_EQ(Version(), "6.3.1.4");
        EXPECT_EQ(database_.Rows("SELECT DISTINCT typeof(FieldValue) FROM DatabaseInformation"), stored);
    }
}

TEST_F(IniScriptsUpgradeTest, WarnsOfANameThatIsNoVersion) {
    RecordVersion({"1", "0", "0", "0"});
    const std::vector<std::string> wrong = {"2.0.0",    "2.0.0.0.0",       "2.0.0.x",  "2..0.0",
                                            "v2.0.0.0", "2.0.0.0 a",       "-2.0.0.0", "2.0.0.0-",
                                            "+2.0.0.0", "4294967296.0.0.0"};
    std::vector<std::string> names = wrong;
    names.emplace_back("2.0.0.0");
    WriteIni(names);
    EXPECT_TRUE(Upgrade());
    EXPECT_EQ(Steps(), "2.0.0.0");
    Lines expected;
    for (const std::string& name : wrong) {
        expected.push_back("warning Test RunUpgrade: Entry '" + name +
                           "' of section 'Upgrade' is not named by a version; it is not run");
    }
    EXPECT_EQ(Complaints(), expected);
}

TEST_F(IniScriptsUpgradeTest, StopsAtTheFirstFailureAndKeepsTheVersionBeforeIt) {
    RecordVersion({"1", "0", "0", "0"});
    database_.Directory().Write("scripts.ini",
                                "[Upgrade]\n2.0.0.0 = INSERT INTO Steps VALUES (2)\n"
                                "3.0.0.0-a = INSERT INTO Steps VALUES (3)\n3.0.0.0-b = INSERT INTO Nowhere "
                                "VALUES (3)\n4.0.0.0 = INSERT INTO Steps VALUES (4)\n");
    EXPECT_FALSE(Upgrade());
    EXPECT_EQ(Steps(), "2");
    EXPECT_EQ(Version(), "2.0.0.0");
    EXPECT_EQ(progressSeen, (Progress{{1, 3}}));
    EXPECT_EQ(Complaints(), Lines{"error Test DBConnection: no such table: Nowhere in statement: INSERT INTO "
                                  "Nowhere VALUES (?)"});
}

TEST_F(IniScriptsUpgradeTest, UndoesAVersionThatItCannotRecord) {
    RecordVersion({"1", "0", "0", "0"}, "INTEGER CHECK (FieldValue < 2)");
    WriteIni({"2.0.0.0"});
    EXPECT_FALSE(Upgrade());
    EXPECT_EQ(Steps(), "");
    EXPECT_EQ(Version(), "1.0.0.0");
    EXPECT_EQ(Complaints().size(), 1U);
}

TEST_F(IniScriptsUpgradeTest, RunsNothingWhereNoVersionIsRecorded) {
    const std::vector<std::vector<std::string>> records = {{},
                                                           {"6", "2", "0"},
                                                           {"6", "2", "0", "x"},
                                                           {"6", "2", "0", ""},
                                                           {"6", "2", "0", "-1"},
                                                           {"6.0", "2", "0", "0"}};
    for (const auto& record : records) {
        TestDatabase& database = database_;
        EXPECT_TRUE(database.Run("DROP TABLE IF EXISTS DatabaseInformation"));
        EXPECT_TRUE(database.Run("DROP TABLE IF EXISTS Steps"));
        RecordVersion(record);
        WriteIni({"7.0.0.0", "malformed"});
        const std::size_t before = database.Lines().size();
        EXPECT_TRUE(Upgrade());
        EXPECT_EQ(Steps(), "");
        ASSERT_EQ(database.Lines().size(), before + 1);
        EXPECT_EQ(
            database.Lines().back(),
            "warning Test RunUpgrade: No version is recorded in table 'DatabaseInformation'; no upgrade "
            "of section 'Upgrade' is run");
    }
}

TEST_F(IniScriptsUpgradeTest, RunsNothingWithoutTheTable) {
    WriteIni({"7.0.0.0"});
    EXPECT_TRUE(Upgrade());
    EXPECT_EQ(Complaints(), Lines{"warning Test RunUpgrade: No version is recorded in table "
                                  "'DatabaseInformation'; no upgrade of section 'Upgrade' is run"});
}

TEST_F(IniScriptsUpgradeTest, FailsWhereTheVersionCannotBeRead) {
    EXPECT_TRUE(database_.Run("CREATE TABLE DatabaseInformation (Name, Value)"));
    WriteIni({"7.0.0.0"});
    EXPECT_FALSE(Upgrade());
    ASSERT_EQ(Complaints().size(), 1U);
    EXPECT_TRUE(Complaints()[0].starts_with("error Test DBConnection: no such column: FieldValue"));
    database_.Select(database_.Directory().At("nowhere/test.sqlite3"));
    EXPECT_FALSE(Upgrade());
    EXPECT_EQ(Complaints().size(), 2U);
}

TEST_F(IniScriptsUpgradeTest, NeedsNoOneToTellOfItsProgress) {
    RecordVersion({"1", "0", "0", "0"});
    WriteIni({"2.0.0.0"});
    DBConnection connection(database_.Pool());
    EXPECT_TRUE(connection.RunUpgrade("DatabaseInformation", "FieldName", "FieldValue",
                                      database_.Directory().At("scripts.ini"), "Upgrade", nullptr));
    EXPECT_EQ(Steps(), "2.0.0.0");
}

TEST_F(IniScriptsTest, FailsByTheMachineWhereTheFileCannotBeRead) {
    std::filesystem::create_directory(database_.Directory() / "scripts.ini");
    DBConnection connection(database_.Pool());
    EXPECT_FALSE(connection.RunIniScripts(database_.Directory().At("scripts.ini"), "Scripts", false));
    EXPECT_TRUE(connection.HasFailedByMachine());
}

TEST_F(IniScriptsTest, FailsByItselfWhereAStatementIsWrong) {
    WriteIni("[Scripts]\na = INSERT INTO u VALUES (1)\n");
    DBConnection connection(database_.Pool());
    EXPECT_FALSE(connection.RunIniScripts(database_.Directory().At("scripts.ini"), "Scripts", false));
    EXPECT_FALSE(connection.HasFailedByMachine());
}

}  // namespace
