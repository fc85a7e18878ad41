#include <atomic>
#include <string>
#include <string_view>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "support/Sqlite.h"
#include "support/TestDatabase.h"

namespace {

std::atomic<int> preparedCounts{0};

int NoteCount(void* /*unused*/, int action, const char* /*unused*/, const char* function,
              const char* /*database*/, const char* /*trigger*/) {
    preparedCounts += action == SQLITE_FUNCTION && std::string_view(function) == "count" ? 1 : 0;
    return SQLITE_OK;
}

int WatchHandle(sqlite3* database, char** /*error*/, const sqlite3_api_routines* /*routines*/) {
    return sqlite3_set_authorizer(database, NoteCount, nullptr);
}

/// A large table, counted on handles that tell of each statement that counts.
class CountMemoryTest : public testing::Test {
protected:
    CountMemoryTest() {
        sqlite3_auto_extension(reinterpret_cast<void (*)()>(&WatchHandle));
        EXPECT_TRUE(database_.Run("CREATE TABLE t (a)"));
        Fill(10000);
    }
    ~CountMemoryTest() override { sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(&WatchHandle)); }

    static LumString FillText(int rows) {
        return LumString(
            std::string_view("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                             std::to_string(rows) + ") INSERT INTO t SELECT i FROM n"));
    }
    void Fill(int rows) { EXPECT_TRUE(database_.Run(FillText(rows))); }

    /// What the statement answers, and "counted" where SQLite was asked to count for it.
    std::string Ask(const LumString& sql = "SELECT COUNT (*) FROM t;") {
        const int before = preparedCounts;
        std::string answer = database_.Rows(sql);
        return answer + (preparedCounts > before ? " counted" : "");
    }

    TestDatabase database_;
};

TEST_F(CountMemoryTest, CountsALargeTableOnce) {
    EXPECT_EQ(Ask(), "10000 counted");
    EXPECT_EQ(Ask(), "10000");
    EXPECT_EQ(database_.Rows("SELECT a FROM t WHERE a = 7"), "7");
    EXPECT_EQ(Ask(), "10000");
}

TEST_F(CountMemoryTest, HasTheColumnThatACountHas) {
    EXPECT_EQ(Ask(), "10000 counted");
    DBConnection connection(database_.Pool());
    const GenSqlResult* const recalled = connection.Query("SELECT COUNT (*) FROM t;");
    ASSERT_NE(recalled, nullptr);
    uint32_t column = 7;
    EXPECT_TRUE(recalled->FindColumn("COUNT (*)", column));
    EXPECT_EQ(column, 0U);
    EXPECT_EQ(recalled->GetColumnCount(), 1U);
    EXPECT_EQ(recalled->GetRowCount(), 1U);
}

TEST_F(CountMemoryTest, CountsASmallTableEachTime) {
    EXPECT_TRUE(database_.Run("DELETE FROM t WHERE a = 1"));
    EXPECT_EQ(Ask(), "9999 counted");
    EXPECT_EQ(Ask(), "9999 counted");
}

TEST_F(CountMemoryTest, RecallsNoOtherStatement) {
    EXPECT_TRUE(database_.Run("CREATE VIEW v AS SELECT * FROM t WHERE a <> abs(random() % 2)"));
    for (const char* const sql : {"SELECT COUNT (*) FROM v;", "SELECT COUNT (*) FROM t WHERE a <> 0;",
                                  "SELECT COUNT (*), 1 FROM t;", "SELECT COUNT (*) FROM t, (SELECT 1);"}) {
        EXPECT_NE(Ask(sql).find(" counted"), std::string::npos) << sql;
        EXPECT_NE(Ask(sql).find(" counted"), std::string::npos) << sql;
    }
    EXPECT_EQ(Ask("SELECT COUNT (*) FROM gone;"), "failed");
}

TEST_F(CountMemoryTest, CountsAnewAfterEachChange) {
    EXPECT_EQ(Ask(), "10000 counted");
    EXPECT_TRUE(database_.Run("INSERT INTO t (a) VALUES (20000)"));  // as its shape
    EXPECT_EQ(Ask(), "10001 counted");
    EXPECT_TRUE(database_.Run("DELETE FROM t WHERE a = 20000"));
    EXPECT_EQ(Ask(), "10000 counted");
    EXPECT_FALSE(database_.Run("INSERT INTO t VALUES (1), (raise(1))"));
    EXPECT_EQ(Ask(), "10000 counted");
    EXPECT_TRUE(database_.Run("ALTER TABLE t RENAME TO u"));
    EXPECT_EQ(Ask(), "failed");
    EXPECT_TRUE(database_.Run("CREATE TABLE t (a)"));
    EXPECT_EQ(Ask(), "0 counted");
}

TEST_F(CountMemoryTest, CountsAnewAfterATransactionAndInIt) {
    EXPECT_EQ(Ask(), "10000 counted");
    {
        DBConnection connection(database_.Pool());
        ASSERT_TRUE(connection.BeginTransaction());
        EXPECT_NE(connection.Query(FillText(20000)), nullptr);
        EXPECT_EQ(TestDatabase::Rows(connection.Query("SELECT COUNT (*) FROM t;")), "30000");
        ASSERT_TRUE(connection.RollbackTransaction());
    }
    EXPECT_EQ(Ask(), "10000 counted");
}

TEST_F(CountMemoryTest, CountsAnewAfterAStatementThatEndsATransaction) {
    DBConnection connection(database_.Pool());
    EXPECT_NE(connection.Query("BEGIN"), nullptr);
    EXPECT_NE(connection.Query("INSERT INTO t VALUES (20000)"), nullptr);
    EXPECT_EQ(TestDatabase::Rows(connection.Query("SELECT COUNT (*) FROM t;")), "10001");
    EXPECT_NE(connection.Query("ROLLBACK"), nullptr);
    EXPECT_EQ(TestDatabase::Rows(connection.Query("SELECT COUNT (*) FROM t;")), "10000");
}

TEST_F(CountMemoryTest, CountsAnewOnceAnotherProgramHasCommitted) {
    EXPECT_EQ(Ask(), "10000 counted");
    const Sqlite other(database_.Path().GetString());
    other.Run("BEGIN; INSERT INTO t VALUES (20000)");
    EXPECT_EQ(Ask(), "10000");
    other.Run("COMMIT");
    EXPECT_EQ(Ask(), "10001 counted");
    EXPECT_EQ(Ask(), "10001");
}

}  // namespace
