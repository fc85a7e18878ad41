// What the project relies on in SQLite, one test each: a new version of it that thinks otherwise shows here.

#include <string>

#include <gtest/gtest.h>

#include "support/Sqlite.h"
#include "support/TestDatabase.h"

namespace {

TEST(SqliteFeatures, NamesOfTablesColumnsAndIndexesHaveNoLetterCase) {
    TestDatabase database;
    EXPECT_TRUE(
        database.Run("CREATE TABLE Event_Logon (E_Id INTEGER PRIMARY KEY, E_DeviceId INTEGER NOT NULL)"));
    EXPECT_TRUE(database.Run("CREATE INDEX Ix_Event_Logon_DeviceID ON EVENT_LOGON (E_DeviceID)"));
    EXPECT_TRUE(database.Run("INSERT INTO EVENT_Logon (E_DEVICEID) VALUES (5)"));
    EXPECT_EQ(database.Rows("SELECT e_deviceid FROM event_logon WHERE E_DeviceID = 5"), "5");
    EXPECT_FALSE(database.Run("CREATE TABLE EVENT_LOGON (a)"));
}

TEST(SqliteFeatures, AColumnNeedsNoType) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a INTEGER, C_other );"));
    EXPECT_TRUE(database.Run("INSERT INTO t (a, C_other) VALUES (1, '5')"));
    EXPECT_EQ(database.Rows("SELECT typeof(C_other) FROM t"), "text");
}

TEST(SqliteFeatures, TheTypeWordsOfTheModelsGiveTheirAffinities) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a TEXT, b INTEGER, c FLOAT, d TIMESTAMP, e BOOLEAN, f ENUM)"));
    EXPECT_TRUE(database.Run("INSERT INTO t VALUES ('5', '5', '2.500000', '5', '1', '5')"));
    EXPECT_TRUE(database.Run("INSERT INTO t VALUES ('x', 'x', '2.000000', 'x', 'x', 'x')"));
    EXPECT_EQ(database.Rows("SELECT typeof(a), typeof(b), typeof(c), typeof(d), typeof(e), typeof(f) FROM t"),
              "text|integer|real|integer|integer|integer\ntext|text|real|text|text|text");
}

TEST(SqliteFeatures, ADoubledPercentSignComesOutOfStrftimeAsOne) {
    TestDatabase database;
    EXPECT_EQ(database.Rows("SELECT strftime('%%d', 0, 'unixepoch'), strftime('%d', 0, 'unixepoch')"),
              "%d|01");
}

TEST(SqliteFeatures, ARowInTheWriteAheadLogIsSeenByAnotherProgram) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    const Sqlite other(database.Path().GetString());
    EXPECT_TRUE(database.Run("INSERT INTO t VALUES (7)"));
    EXPECT_EQ(other.Rows("SELECT a FROM t"), "7");
    EXPECT_EQ(other.Rows("PRAGMA journal_mode"), "wal");
}

TEST(SqliteFeatures, AReaderDoesNotStopAWriter) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    const Sqlite other(database.Path().GetString());
    other.Run("BEGIN; SELECT * FROM t");
    EXPECT_TRUE(database.Run("INSERT INTO t VALUES (7)"));
    EXPECT_EQ(other.Rows("SELECT count(*) FROM t"), "0");
}

TEST(SqliteFeatures, AnIntegrityCheckOfAGoodDatabaseIsOneRowOfOk) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    EXPECT_EQ(database.Rows("pragma integrity_check"), "ok");
}

TEST(SqliteFeatures, AVacuumReturnsNothingAndKeepsTheLogAndTheRows) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    EXPECT_TRUE(database.Run("INSERT INTO t VALUES (7)"));
    EXPECT_EQ(database.Rows("vacuum"), "");
    EXPECT_EQ(database.Rows("SELECT a FROM t"), "7");
    EXPECT_EQ(database.Rows("PRAGMA journal_mode"), "wal");
}

TEST(SqliteFeatures, ATableTakesItsIndexesWithIt) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    EXPECT_TRUE(database.Run("CREATE INDEX i ON t (a)"));
    EXPECT_TRUE(database.Run("DROP TABLE t;"));
    EXPECT_EQ(database.Rows("SELECT count(*) FROM sqlite_master"), "0");
}

TEST(SqliteFeatures, ATableIsMadeAndDroppedWithinATransaction) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE kept (a)"));
    DBConnection connection(database.Pool());
    EXPECT_TRUE(connection.BeginTransaction());
    EXPECT_NE(connection.Query("CREATE TABLE t (a)"), nullptr);
    EXPECT_NE(connection.Query("DROP TABLE kept"), nullptr);
    EXPECT_TRUE(connection.RollbackTransaction());
    EXPECT_EQ(database.Rows("SELECT name FROM sqlite_master"), "kept");
}

}  // namespace
