#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/database/Database.h"
#include "support/FaultVfs.h"
#include "support/ResourceLimit.h"
#include "support/TestDatabase.h"

namespace {

using Lines = std::vector<std::string>;

TEST(DBConnection, StoresARowAndReadsItBack) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a, b)"));
    EXPECT_TRUE(database.Run("INSERT INTO t VALUES (1, 'one')"));
    EXPECT_EQ(database.Rows("SELECT * FROM t"), "1|one");
    EXPECT_EQ(database.Lines(), Lines{});
}

TEST(DBConnection, AnswersAStatementWithoutRowsByAnEmptyResult) {
    TestDatabase database;
    DBConnection connection(database.Pool());
    GenSqlResult* const result = connection.Query("CREATE TABLE t (a)");
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->GetRowCount(), 0U);
    EXPECT_EQ(result->GetColumnCount(), 0U);
    EXPECT_FALSE(result->SelectFirstRow());
    EXPECT_FALSE(result->SelectRow(0));
    LumString text("kept");
    int64_t whole = 7;
    double real = 7.5;
    bool flag = true;
    uint32_t column = 7;
    EXPECT_FALSE(result->GetColumn(0, text));
    EXPECT_FALSE(result->GetColumn(0, whole));
    EXPECT_FALSE(result->GetColumn(0, real));
    EXPECT_FALSE(result->GetColumn(0, flag));
    EXPECT_FALSE(result->FindColumn("a", column));
    EXPECT_TRUE(text == "kept" && whole == 7 && real == 7.5 && flag && column == 7);
}

TEST(DBConnection, ReportsAFailedStatementInOneLine) {
    TestDatabase database;
    EXPECT_FALSE(database.Run("SELECT * FROM Event_X"));
    EXPECT_EQ(database.Lines(),
              Lines{"error Test DBConnection: no such table: Event_X in statement: SELECT * FROM Event_X"});
}

TEST(DBConnection, SaysNothingOfAQuietStatement) {
    TestDatabase database;
    DBConnection connection(database.Pool());
    EXPECT_EQ(connection.Query("SELECT * FROM Event_X", true), nullptr);
    EXPECT_EQ(database.Lines(), Lines{});
}

TEST(DBConnection, CutsAReportedStatementAt500Characters) {
    TestDatabase database;
    std::string text;
    for (int i = 0; i < 600; ++i) {
        text += "ä";
    }
    EXPECT_FALSE(database.Run(LumString("SELECT 'value', " + text)));
    ASSERT_EQ(database.Lines().size(), 1U);
    const std::string start = "in statement: ";
    const std::string line = database.Lines()[0];
    EXPECT_EQ(line.substr(line.find(start) + start.size()), "SELECT ?, " + text.substr(0, 2 * 490));
}

TEST(DBConnection, RefusesANullByte) {
    TestDatabase database;
    EXPECT_FALSE(database.Run(LumString(std::string_view("SELECT 1\0, 2", 12))));
    ASSERT_EQ(database.Lines().size(), 1U);
    EXPECT_TRUE(database.Lines()[0].starts_with("error Test DBConnection: null byte in statement: SELECT ?"));
}

TEST(DBConnection, RefusesATextWithoutStatement) {
    TestDatabase database;
    for (const char* text : {"", "  \n", ";", "-- a remark"}) {
        EXPECT_FALSE(database.Run(text)) << text;
    }
    ASSERT_EQ(database.Lines().size(), 4U);
    EXPECT_EQ(database.Lines()[0], "error Test DBConnection: no statement in statement: ");
}

TEST(DBConnection, RefusesAnythingBehindTheStatement) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    for (const char* text : {"SELECT 1; SELECT 2", "SELECT 1;;", "SELECT 1; -- remark", "SELECT 1;x",
                             "INSERT INTO t VALUES (1); DROP TABLE t", "INSERT INTO t VALUES (1);;"}) {
        EXPECT_FALSE(database.Run(text)) << text;
    }
    EXPECT_EQ(database.Lines()[0],
              "error Test DBConnection: more than one statement in statement: SELECT ?; SELECT ?");
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "0");
}

TEST(DBConnection, TakesBlanksAndOneSemicolonBehindTheStatement) {
    TestDatabase database;
    for (const char* text : {"SELECT 1;", "SELECT 1 ", "SELECT 1 ; \t\r\n\f", " SELECT 1\n;"}) {
        EXPECT_EQ(database.Rows(text), "1") << text;
    }
}

TEST(DBConnection, StoresATextOfAMillionCharacters) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a TEXT)"));
    const std::string text(1000000, 'x');
    EXPECT_TRUE(database.Run(LumString("INSERT INTO t (a) VALUES ('" + text + "')")));
    EXPECT_EQ(database.Rows("SELECT a FROM t"), text);
}

TEST(DBConnection, KeepsResultsUntilItGoes) {
    TestDatabase database;
    DBConnection connection(database.Pool());
    GenSqlResult* const first = connection.Query("SELECT 1 UNION SELECT 2");
    GenSqlResult* const second = connection.Query("SELECT 'x'");
    ASSERT_NE(connection.Query("CREATE TABLE t (a)"), nullptr);
    EXPECT_EQ(TestDatabase::Rows(first), "1\n2");
    EXPECT_EQ(TestDatabase::Rows(second), "x");
}

TEST(DBConnection, CommitsATransaction) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    {
        DBConnection connection(database.Pool());
        EXPECT_TRUE(connection.BeginTransaction());
        EXPECT_NE(connection.Query("INSERT INTO t VALUES (1)"), nullptr);
        EXPECT_TRUE(connection.CommitTransaction());
    }
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "1");
}

TEST(DBConnection, RollsATransactionBack) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    DBConnection connection(database.Pool());
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(connection.BeginTransaction());
        EXPECT_NE(connection.Query("INSERT INTO t VALUES (1)"), nullptr);
        EXPECT_TRUE(connection.RollbackTransaction());
    }
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "0");
}

TEST(DBConnection, RollsBackWhatItLeavesOpen) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    for (const char* begin : {"BEGIN", "BEGIN IMMEDIATE", "SAVEPOINT s"}) {
        DBConnection connection(database.Pool());
        EXPECT_NE(connection.Query(begin), nullptr);
        EXPECT_NE(connection.Query("INSERT INTO t VALUES (1)"), nullptr);
    }
    {
        DBConnection connection(database.Pool());
        EXPECT_TRUE(connection.BeginTransaction());
        EXPECT_NE(connection.Query("INSERT INTO t VALUES (1)"), nullptr);
    }
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "0");
    EXPECT_EQ(database.Lines(), Lines{});
}

TEST(DBConnection, LeavesTheTransactionOfAnotherConnectionAlone) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    DBConnection connection(database.Pool());
    EXPECT_TRUE(connection.BeginTransaction());
    EXPECT_TRUE(database.Run("INSERT INTO t VALUES (1)"));
    EXPECT_TRUE(connection.CommitTransaction());
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "1");
}

TEST(DBConnection, ReportsATransactionThatCannotBegin) {
    TestDatabase database;
    DBConnection connection(database.Pool());
    EXPECT_TRUE(connection.BeginTransaction());
    EXPECT_FALSE(connection.BeginTransaction());
    EXPECT_EQ(database.Lines(), Lines{"error Test DBConnection: cannot start a transaction within a "
                                      "transaction in statement: BEGIN IMMEDIATE"});
}

TEST(DBConnection, ReportsATransactionThatIsNotThere) {
    TestDatabase database;
    DBConnection connection(database.Pool());
    EXPECT_FALSE(connection.CommitTransaction());
    EXPECT_FALSE(connection.RollbackTransaction());
    EXPECT_EQ(database.Lines(),
              (Lines{"error Test DBConnection: cannot commit - no transaction is active in statement: COMMIT",
                     "error Test DBConnection: cannot rollback - no transaction is active in statement: "
                     "ROLLBACK"}));
}

TEST(DBConnection, CountsATransactionThatAFullDiskHasEndedAsRolledBack) {
    FaultVfs faults;
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    EXPECT_TRUE(database.Run("INSERT INTO t VALUES (zeroblob(20000))"));
    DBConnection connection(database.Pool());
    EXPECT_NE(connection.Query("PRAGMA cache_size = 1"), nullptr);
    EXPECT_TRUE(connection.BeginTransaction());
    faults.SetDiskFull(true);
    EXPECT_EQ(connection.Query("INSERT INTO t VALUES (randomblob(2000000))"), nullptr);
    EXPECT_FALSE(connection.CommitTransaction());
    EXPECT_TRUE(connection.RollbackTransaction());
    EXPECT_EQ(database.Lines().size(), 2U);
    faults.SetDiskFull(false);
    EXPECT_TRUE(connection.BeginTransaction());
    EXPECT_TRUE(connection.CommitTransaction());
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "1");
}

TEST(DBConnection, IsMadeWhileAnotherOneIsThere) {
    for (const bool serial : {true, false}) {
        TestDatabase database(serial);
        DBConnection first(database.Pool());
        EXPECT_NE(first.Query("CREATE TABLE t (a)"), nullptr);
        DBConnection second(database.Pool());
        EXPECT_NE(second.Query("INSERT INTO t VALUES (1)"), nullptr);
        EXPECT_EQ(TestDatabase::Rows(first.Query("SELECT a FROM t")), "1");
    }
}

TEST(DBConnection, HasAHandleOfItsOwnUnlessSerial) {
    TestDatabase database(false);
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    DBConnection writer(database.Pool());
    DBConnection reader(database.Pool());
    EXPECT_TRUE(writer.BeginTransaction());
    EXPECT_NE(writer.Query("INSERT INTO t VALUES (1)"), nullptr);
    EXPECT_EQ(TestDatabase::Rows(reader.Query("SELECT count(*) FROM t")), "0");
    EXPECT_TRUE(writer.CommitTransaction());
    EXPECT_EQ(TestDatabase::Rows(reader.Query("SELECT count(*) FROM t")), "1");
}

TEST(DBConnection, UsesTheHandleThatAnotherOneHasLeft) {
    FaultVfs faults;
    TestDatabase database(false);
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    const uint64_t opened = faults.CountCalls(FaultVfs::Call::kOpen);
    EXPECT_TRUE(database.Run("SELECT * FROM t"));
    EXPECT_EQ(faults.CountCalls(FaultVfs::Call::kOpen), opened);
}

TEST(DBConnection, RunsStatementsOfManyThreads) {
    constexpr int kThreads = 4;
    constexpr int kInserts = 50;
    for (const bool serial : {true, false}) {
        TestDatabase database(serial);
        EXPECT_TRUE(database.Run("CREATE TABLE t (a, b)"));
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&database, i] {
                LumString sql;
                for (int k = 0; k < kInserts; ++k) {
                    sql.Printf("INSERT INTO t (a, b) VALUES (%d, 'it''s %d')", i, k);
                    EXPECT_TRUE(database.Run(sql));
                    EXPECT_NE(database.Rows("SELECT * FROM t"), "failed");
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(database.Rows("SELECT count(*), count(DISTINCT a || b) FROM t"), "200|200");
    }
}

/// What the error action below works on: it is a plain routine and has no other way to know.
TestDatabase* actionDatabase = nullptr;
std::string actionRows;

TEST(DBConnection, LogsWhileTheDatabaseIsFree) {
    TestDatabase database;
    actionDatabase = &database;
    // An action that needs the database, and waits for another thread that needs it too.
    database.Debug().SetErrorActionInvokeAddress([](const LumString& /*text*/) {
        std::thread([] { actionRows = actionDatabase->Rows("SELECT 'from another thread'"); }).join();
        actionRows += actionDatabase->Rows("SELECT ' and from this one'");
    });
    EXPECT_FALSE(database.Run("no statement at all"));
    EXPECT_EQ(actionRows, "from another thread and from this one");
    actionRows.clear();
    DBConnection connection(database.Pool());
    EXPECT_FALSE(connection.CommitTransaction());
    EXPECT_EQ(actionRows, "from another thread and from this one");
}

}  // namespace
