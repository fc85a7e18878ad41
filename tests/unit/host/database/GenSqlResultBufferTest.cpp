#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "host/database/Database.h"
#include "support/Sqlite.h"
#include "support/TestDatabase.h"

namespace {

/// What stands before each of the semicolons.
std::vector<std::string> Parts(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> parts;
    for (std::string part; std::getline(stream, part, ';');) {
        parts.push_back(part);
    }
    return parts;
}

/// Expressions whose values are hard to read in another type than their own.
std::vector<std::string> HardCells() {
    std::vector<std::string> cells = Parts(
        "NULL;0;-0;1;-1;127;128;-128;-129;32767;32768;-32768;-32769;8388607;8388608;"
        "-8388609;2147483647;-2147483648;2147483648;549755813888;140737488355328;"
        "36028797018963968;9223372036854775807;-9223372036854775807 - 1;0.0;-0.0;2.0;0.1;"
        "1e15;1e16;123456789012345678.0;1e300;-1e300;1e-300;9e999;-9e999;"
        "9223372036854775807.0;-9223372036854775808.0;9223372036854774784.0;3.5;-3.5;x'';"
        "x'3132';x'00';zeroblob(300);CAST(x'31003233' AS TEXT);char(0);");
    for (const std::string& text :
         Parts(";12; 12;\t\n\v\f\r12;-12;+12;+-12;-+12;--12;12abc;abc;1e3;1.9;-1.9;.5;-.5e2;"
               "0x10;9223372036854775807;9223372036854775808;-9223372036854775808;"
               "-9223372036854775809;99999999999999999999999;-99999999999999999999999;"
               "000000000000000000012;3.14159265358979323846;1e400;-1e400;nan;inf;2.500000;0.1;"
               "1e-5;+;-; ;\xc3\xa4;\xff\xfe;")) {
        cells.push_back("'" + text + "'");
    }
    cells.push_back("'" + std::string(244, 'a') + "'");
    cells.push_back("'" + std::string(245, 'b') + "'");
    cells.push_back("'" + std::string(70000, 'c') + "'");
    return cells;
}

/// Compares one column of one row with what SQLite itself reads.
void ExpectSameCell(const GenSqlResult& result, uint32_t column, sqlite3_stmt* statement) {
    const int place = static_cast<int>(column);
    LumString text("x");
    int64_t whole = 77;
    double real = 77.0;
    bool flag = false;
    ASSERT_TRUE(result.GetColumn(column, whole));
    ASSERT_TRUE(result.GetColumn(column, flag));
    ASSERT_TRUE(result.GetColumn(column, real));
    ASSERT_TRUE(result.GetColumn(column, text));
    EXPECT_EQ(whole, sqlite3_column_int64(statement, place));
    EXPECT_EQ(flag, sqlite3_column_int64(statement, place) != 0);
    // SQLite is not exact in the last place of a number that it reads from a text.
    EXPECT_DOUBLE_EQ(real, sqlite3_column_double(statement, place));
    const auto* const expected = reinterpret_cast<const char*>(sqlite3_column_text(statement, place));
    const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement, place));
    EXPECT_EQ(text.View(), std::string_view(expected != nullptr ? expected : "", length));
}

void ExpectSameRows(TestDatabase& database, const std::string& sql) {
    const Sqlite raw(database.Path().GetString());
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(raw.Get(), sql.c_str(), -1, &statement, nullptr), SQLITE_OK);
    DBConnection connection(database.Pool());
    GenSqlResult* const result = connection.Query(LumString(std::string_view(sql)));
    ASSERT_NE(result, nullptr);
    uint32_t rows = 0;
    for (; sqlite3_step(statement) == SQLITE_ROW; ++rows) {
        ASSERT_TRUE(result->SelectRow(rows));
        for (uint32_t column = 0; column < result->GetColumnCount(); ++column) {
            ExpectSameCell(*result, column, statement);
        }
    }
    EXPECT_EQ(result->GetRowCount(), rows);
    sqlite3_finalize(statement);
}

TEST(GenSqlResultBuffer, ReadsEveryValueAsEveryTypeLikeSqlite) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    for (const std::string& cell : HardCells()) {
        SCOPED_TRACE(cell.substr(0, 60));
        ExpectSameRows(database, "SELECT " + cell + ", 5, " + cell);
    }
}

TEST(GenSqlResultBuffer, ReadsRandomTextsAsNumbersLikeSqlite) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    std::mt19937 random(20261121);
    const std::string letters = "0123456789.-+eE x";
    std::string sql;
    for (int i = 0; i < 400; ++i) {
        std::string text;
        for (std::size_t length = random() % 24; text.size() < length;) {
            text += letters[random() % letters.size()];
        }
        sql += (i == 0 ? "VALUES ('" : ", ('") + text + "')";
    }
    ExpectSameRows(database, sql);
}

TEST(GenSqlResultBuffer, ReadsADatabaseInUtf16) {
    TestDatabase database;
    Sqlite(database.Path().GetString()).Run("PRAGMA encoding = 'UTF-16'; CREATE TABLE t (a TEXT)");
    EXPECT_TRUE(database.Run("INSERT INTO t (a) VALUES ('gr\xc3\xbc\xc3\x9f 12')"));
    EXPECT_EQ(database.Rows("PRAGMA encoding"), "UTF-16le");
    EXPECT_EQ(database.Rows("SELECT a FROM t"), "gr\xc3\xbc\xc3\x9f 12");
}

TEST(GenSqlResultBuffer, HasTheFirstRowSelectedAfterTheQuery) {
    TestDatabase database;
    DBConnection connection(database.Pool());
    GenSqlResult* const result = connection.Query("VALUES (1), (2), (3)");
    ASSERT_NE(result, nullptr);
    int64_t value = 0;
    EXPECT_TRUE(result->GetColumn(0, value));
    EXPECT_EQ(value, 1);
    EXPECT_TRUE(result->SelectRow(2));
    EXPECT_TRUE(result->GetColumn(0, value));
    EXPECT_EQ(value, 3);
    EXPECT_TRUE(result->SelectFirstRow());
    EXPECT_TRUE(result->GetColumn(0, value));
    EXPECT_EQ(value, 1);
}

TEST(GenSqlResultBuffer, LeavesEverythingAsItIsOutsideOfTheResult) {
    TestDatabase database;
    DBConnection connection(database.Pool());
    GenSqlResult* const result = connection.Query("VALUES (1, 2), (3, 4)");
    ASSERT_NE(result, nullptr);
    EXPECT_TRUE(result->SelectRow(1));
    EXPECT_FALSE(result->SelectRow(2));
    EXPECT_FALSE(result->SelectRow(0xFFFFFFFF));
    LumString text("kept");
    int64_t whole = 7;
    double real = 7.5;
    bool flag = true;
    EXPECT_FALSE(result->GetColumn(2, text));
    EXPECT_FALSE(result->GetColumn(2, whole));
    EXPECT_FALSE(result->GetColumn(2, real));
    EXPECT_FALSE(result->GetColumn(0xFFFFFFFF, flag));
    EXPECT_TRUE(text == "kept" && whole == 7 && real == 7.5 && flag);
    EXPECT_TRUE(result->GetColumn(0, whole));
    EXPECT_EQ(whole, 3);
}

TEST(GenSqlResultBuffer, KnowsItsColumnsWithoutRows) {
    TestDatabase database;
    DBConnection connection(database.Pool());
    GenSqlResult* const result = connection.Query("SELECT 1 AS One, 2 AS Two, 3 AS two WHERE 0");
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->GetRowCount(), 0U);
    EXPECT_EQ(result->GetColumnCount(), 3U);
    EXPECT_FALSE(result->SelectFirstRow());
    int64_t value = 7;
    EXPECT_FALSE(result->GetColumn(0, value));
    EXPECT_EQ(value, 7);
    uint32_t column = 7;
    EXPECT_TRUE(result->FindColumn("TWO", column));
    EXPECT_EQ(column, 1U);
    EXPECT_FALSE(result->FindColumn("three", column));
    EXPECT_EQ(column, 1U);
}

TEST(GenSqlResultBuffer, FindsRowsInAnyOrder) {
    constexpr uint32_t kRows = 20000;
    TestDatabase database;
    DBConnection connection(database.Pool());
    // Rows of all sizes, now and then one that is larger than the others' blocks.
    GenSqlResult* const result = connection.Query(
        "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 19999) SELECT i, "
        "printf('%.*c', CASE i % 1999 WHEN 7 THEN 100000 ELSE i % 300 END, 'x'), -i FROM n");
    ASSERT_NE(result, nullptr);
    ASSERT_EQ(result->GetRowCount(), kRows);
    std::mt19937 random(20261122);
    for (int i = 0; i < 5000; ++i) {
        const auto row = static_cast<uint32_t>(random() % kRows);
        int64_t first = 0;
        int64_t last = 0;
        LumString text;
        ASSERT_TRUE(result->SelectRow(row));
        ASSERT_TRUE(result->GetColumn(0, first));
        ASSERT_TRUE(result->GetColumn(1, text));
        ASSERT_TRUE(result->GetColumn(2, last));
        ASSERT_EQ(first, row);
        // printf writes at least one character.
        ASSERT_EQ(text.GetLength(), row % 1999 == 7 ? 100000U : std::max(row % 300, 1U));
        ASSERT_EQ(last, -static_cast<int64_t>(row));
    }
}

TEST(GenSqlResultBuffer, HoldsARowOfManyColumns) {
    TestDatabase database;
    std::string sql = "SELECT 0";
    std::string expected = "0";
    for (int i = 1; i < 2000; ++i) {
        sql += ", " + std::to_string(i);
        expected += "|" + std::to_string(i);
    }
    EXPECT_EQ(database.Rows(LumString(std::string_view(sql))), expected);
}

}  // namespace
