#include <atomic>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "host/database/Database.h"
#include "support/Sqlite.h"
#include "support/TestDatabase.h"

namespace {

std::atomic<int> preparedInserts{0};

int CountInserts(void* /*unused*/, int action, const char* /*table*/, const char* /*unused*/,
                 const char* /*database*/, const char* /*trigger*/) {
    preparedInserts += action == SQLITE_INSERT ? 1 : 0;
    return SQLITE_OK;
}

int WatchHandle(sqlite3* database, char** /*error*/, const sqlite3_api_routines* /*routines*/) {
    return sqlite3_set_authorizer(database, CountInserts, nullptr);
}

/// Counts how often an INSERT is prepared on handles that are opened while it lives.
class PrepareCounter {
public:
    PrepareCounter() {
        preparedInserts = 0;
        sqlite3_auto_extension(reinterpret_cast<void (*)()>(WatchHandle));
    }
    PrepareCounter(const PrepareCounter&) = delete;
    PrepareCounter& operator=(const PrepareCounter&) = delete;
    ~PrepareCounter() { sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(WatchHandle)); }

    /// The number since the last call.
    [[nodiscard]] int Take() { return preparedInserts.exchange(0); }
};

TEST(StatementShape, PreparesOnceWhatIsRepeatedWithOtherValues) {
    PrepareCounter counter;
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a, b)"));
    static_cast<void>(counter.Take());
    EXPECT_TRUE(database.Run("INSERT INTO t (a, b) VALUES (1, 'x');"));
    EXPECT_EQ(counter.Take(), 1);
    for (const char* sql :
         {"INSERT INTO t (a, b) VALUES (2, 'y')", "INSERT INTO t (a, b) VALUES (-3, 'it''s');",
          "INSERT INTO t (a, b) VALUES ('', 999999999999999999) ; ",
          "INSERT INTO t (a, b) VALUES ( 5 ,'''' )", "INSERT INTO t (a, b) VALUES (-0,'a''''b''c')"}) {
        EXPECT_TRUE(database.Run(sql)) << sql;
    }
    EXPECT_EQ(counter.Take(), 0);
    EXPECT_EQ(database.Rows("SELECT quote(a), quote(b) FROM t"),
              "1|'x'\n2|'y'\n-3|'it''s'\n''|999999999999999999\n5|''''\n0|'a''''b''c'");
}

TEST(StatementShape, RunsWhatIsOfAnotherFormAsItStands) {
    PrepareCounter counter;
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a, b)"));
    static_cast<void>(counter.Take());
    const std::vector<std::string> statements = {
        "insert into t (a, b) VALUES (1, 2)",
        "INSERT INTO t (a, b) VALUES (1.5, 2)",
        "INSERT INTO t (a, b) VALUES (1, 1234567890123456789)",
        "INSERT INTO t (a, b) VALUES (1, 9999999999999999999)",
        "INSERT INTO t (a, b) VALUES (1, -9223372036854775808)",
        "INSERT INTO t (a, b) VALUES (1, 0x10)",
        "INSERT INTO t (a, b) VALUES (1, 1e3)",
        "INSERT INTO t (a, b) VALUES (1, - 2)",
        "INSERT INTO t (a, b) VALUES (1, +2)",
        "INSERT INTO t (a, b) VALUES (1, --2\n 3)",
        "INSERT INTO t (a, b) VALUES (1, NULL)",
        "INSERT INTO t (a, b) VALUES (1, x'41')",
        "INSERT INTO t (a, b) VALUES (1, 'a' || 'b')",
        "INSERT INTO t (a, b) VALUES (1, (2))",
        "INSERT INTO t (a, b) VALUES (1, 2), (3, 4)",
        "INSERT INTO t (a, b) VALUES (1, 2) ON CONFLICT DO NOTHING",
        "INSERT INTO t (a, b) VALUES (1, 2) RETURNING a",
        "INSERT INTO t (a, b) VALUES (1, 2) -- remark",
        "INSERT INTO t (a, \"b\") VALUES (1, 2)",
        "INSERT INTO [t] (a, b) VALUES (1, 2)",
        "INSERT INTO main.t (a, b) VALUES (1, 2)",
        "INSERT INTO t (a, /* ( */ b) VALUES (1, 2)",
        "INSERT INTO t (a, b) SELECT 1, 2 UNION ALL VALUES (3, 4)",
    };
    for (const std::string& sql : statements) {
        EXPECT_TRUE(database.Run(LumString(std::string_view(sql)))) << sql;
        EXPECT_TRUE(database.Run(LumString(std::string_view(sql)))) << sql;
        EXPECT_EQ(counter.Take(), 2) << sql;
    }
    EXPECT_EQ(database.Lines(), std::vector<std::string>{});
    EXPECT_EQ(database.Rows("SELECT quote(b) FROM t WHERE a = 1 ORDER BY rowid LIMIT 8"),
              "2\n2\n1234567890123456789\n1234567890123456789\n1.0e+19\n1.0e+19\n-9223372036854775808\n"
              "-9223372036854775808");
}

TEST(StatementShape, LeavesWrongStatementsToSqlite) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a, b)"));
    for (const char* sql : {"INSERT INTO t (a, b) VALUES (1, 2",
                            "INSERT INTO t (a, b) VALUES (1, 'x)",
                            "INSERT INTO t (a, b) VALUES (1, 'x''",
                            "INSERT INTO t (a, b) VALUES (1, 'x''y)",
                            "INSERT INTO t (a, b) VALUES (1, 2))",
                            "INSERT INTO t (a, b) VALUES (1, 2,)",
                            "INSERT INTO t (a, b) VALUES (1 2)",
                            "INSERT INTO t (a, b) VALUES (1, 2x)",
                            "INSERT INTO t (a, b) VALUES (1, 'x'y)",
                            "INSERT INTO t (a, b) VALUES (-, 2)",
                            "INSERT INTO t (a, b) VALUES ()",
                            "INSERT INTO t (a, b) VALUES (",
                            "INSERT INTO t (a, b) VALUES",
                            "INSERT INTO t (a, b",
                            "INSERT INTO t",
                            "INSERT INTO ",
                            "INSERT INTO t (a, b) VALUES (1)",
                            "INSERT INTO t (a) VALUES (1, 2)",
                            "INSERT INTO t (a,) VALUES (1)",
                            "INSERT INTO t () VALUES (1)",
                            "INSERT INTO t (1) VALUES (1)",
                            "INSERT INTO VALUES (1, 2)",
                            "INSERT INTO t a VALUES (1, 2)",
                            "INSERT INTO t (a, c) VALUES (1, 2)",
                            "INSERT INTO u (a, b) VALUES (1, 2)",
                            "INSERT INTO t (a, b)VALUES(1, 2,",
                            "INSERT INTO t VALUES (1, 2) VALUES (1, 2)",
                            "INSERT INTO t (a, b) VALUESX (1, 2)",
                            "INSERT INTO t (a, b) XVALUES (1, 2)"}) {
        const Sqlite raw(database.Path().GetString());
        const std::size_t lines = database.Lines().size();
        EXPECT_FALSE(database.Run(sql)) << sql;
        ASSERT_EQ(database.Lines().size(), lines + 1) << sql;
        EXPECT_NE(raw.Try(sql), SQLITE_OK) << sql;
        EXPECT_TRUE(database.Lines().back().starts_with(std::string("error Test DBConnection: ") +
                                                        sqlite3_errmsg(raw.Get()) + " in statement: "))
            << sql;
    }
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "0");
}

/// One literal of those that the module and its users may come to write.
std::string RandomLiteral(std::mt19937& random) {
    static const std::vector<std::string> hard = {"0",
                                                  "-0",
                                                  "1",
                                                  "-1",
                                                  "007",
                                                  "2147483648",
                                                  "-2147483649",
                                                  "999999999999999999",
                                                  "-999999999999999999",
                                                  "1000000000000000000",
                                                  "9223372036854775808",
                                                  "'2.500000'",
                                                  "'0.100000'",
                                                  "'-3.000000'",
                                                  "'1e3'",
                                                  "'12'",
                                                  "' 12 '",
                                                  "'12abc'",
                                                  "''",
                                                  "''''",
                                                  "'O''Brien'",
                                                  "'9223372036854775807'",
                                                  "'9223372036854775808'",
                                                  "'0x10'",
                                                  "'nan'",
                                                  "'inf'",
                                                  "'1.0'",
                                                  "'\xc3\xa4\xff'",
                                                  "'a\nb'",
                                                  "'--'",
                                                  "'/*'",
                                                  "'),('",
                                                  "1.5",
                                                  "NULL",
                                                  "TRUE",
                                                  "x'00'"};
    if (random() % 2 == 0) {
        return hard[random() % hard.size()];
    }
    static const std::string letters = "0123456789.eE+- 'a\x7f\xc3\xa4";
    std::string text;
    for (std::size_t length = random() % 12; text.size() < length;) {
        text += letters[random() % letters.size()];
    }
    LumString quoted{std::string_view(text)};
    quoted.ReplaceAll("'", "''");
    return random() % 2 == 0 ? "'" + std::string(quoted.View()) + "'"
                             : std::to_string(static_cast<int64_t>(random()) - 2147483648LL);
}

TEST(StatementShape, StoresWhatTheTextItselfWouldHaveStored) {
    constexpr int kStatements = 3000;
    PrepareCounter counter;
    TestDatabase database;
    const std::string columns =
        "t TEXT, i INTEGER, f FLOAT, s TIMESTAMP, b BOOLEAN, e ENUM, n, r REAL, m NUMERIC";
    for (const char* table : {"Lifted", "Plain"}) {
        LumString create;
        create.Printf("CREATE TABLE %s (id INTEGER PRIMARY KEY, %S)", table, std::string_view(columns));
        EXPECT_TRUE(database.Run(create));
    }
    std::mt19937 random(20261121);
    int prepared = 0;
    for (int i = 0; i < kStatements; ++i) {
        std::string values;
        for (int column = 0; column < 9; ++column) {
            values += (column > 0 ? ", " : "") + RandomLiteral(random);
        }
        const std::string rest = " (t, i, f, s, b, e, n, r, m) VALUES (" + values + ");";
        static_cast<void>(counter.Take());
        const bool lifted = database.Run(LumString("INSERT INTO Lifted" + rest));
        prepared += counter.Take();
        EXPECT_EQ(lifted, database.Run(LumString("insert into Plain" + rest))) << rest;
    }
    // Enough of the statements must have taken the short way for the comparison to mean something.
    EXPECT_LT(prepared, kStatements * 3 / 4);
    for (const std::string column : {"t", "i", "f", "s", "b", "e", "n", "r", "m"}) {
        LumString compare;
        compare.Printf(
            "SELECT l.id, quote(l.%S), quote(p.%S) FROM Lifted l JOIN Plain p ON l.id = p.id WHERE "
            "typeof(l.%S) <> typeof(p.%S) OR quote(l.%S) <> quote(p.%S)",
            std::string_view(column), std::string_view(column), std::string_view(column),
            std::string_view(column), std::string_view(column), std::string_view(column));
        EXPECT_EQ(database.Rows(compare), "");
    }
    LumString count;
    count.Printf("%d|%d", kStatements, kStatements);
    EXPECT_EQ(LumString(std::string_view(
                  database.Rows("SELECT (SELECT count(*) FROM Lifted), (SELECT count(*) FROM Plain)"))),
              count);
}

TEST(StatementShape, StoresTheKeyOfARowLikeTheText) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (id INTEGER PRIMARY KEY, a)"));
    EXPECT_TRUE(database.Run("INSERT INTO t (id, a) VALUES ('12', 'x')"));
    EXPECT_TRUE(database.Run("INSERT INTO t (id, a) VALUES ('13.0', 'y')"));
    EXPECT_FALSE(database.Run("INSERT INTO t (id, a) VALUES ('x', 'z')"));
    EXPECT_EQ(database.Lines().back(),
              "error Test DBConnection: datatype mismatch in statement: INSERT INTO t (id, a) VALUES (?, ?)");
    EXPECT_EQ(database.Rows("SELECT id, a FROM t"), "12|x\n13|y");
}

TEST(StatementShape, FollowsATableThatGoesAndComesBack) {
    const char* const insert = "INSERT INTO t VALUES ('1', 2)";
    const std::string end = " in statement: INSERT INTO t VALUES (?, ?)";
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a TEXT, b)"));
    EXPECT_TRUE(database.Run(insert));
    EXPECT_TRUE(database.Run("DROP TABLE t"));
    EXPECT_FALSE(database.Run(insert));
    EXPECT_EQ(database.Lines().back(), "error Test DBConnection: no such table: t" + end);
    EXPECT_TRUE(database.Run("CREATE TABLE t (a, b, c)"));
    EXPECT_FALSE(database.Run(insert));
    EXPECT_EQ(database.Lines().back(),
              "error Test DBConnection: table t has 3 columns but 2 values were supplied" + end);
    EXPECT_TRUE(database.Run("DROP TABLE t"));
    EXPECT_TRUE(database.Run("CREATE TABLE t (a INTEGER, b TEXT)"));
    EXPECT_TRUE(database.Run(insert));
    EXPECT_EQ(database.Rows("SELECT quote(a), quote(b) FROM t"), "1|'2'");
}

TEST(StatementShape, FollowsATableThatAnotherProgramChanges) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a TEXT, b)"));
    EXPECT_TRUE(database.Run("INSERT INTO t VALUES ('1', 2)"));
    const Sqlite other(database.Path().GetString());
    other.Run("DROP TABLE t");
    EXPECT_FALSE(database.Run("INSERT INTO t VALUES ('1', 2)"));
    other.Run("CREATE TABLE t (a INTEGER, b TEXT)");
    EXPECT_TRUE(database.Run("INSERT INTO t VALUES ('1', 2)"));
    EXPECT_EQ(database.Rows("SELECT quote(a), quote(b) FROM t"), "1|'2'");
}

TEST(StatementShape, ReportsABrokenConstraintAndGoesOn) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a UNIQUE, b CHECK (b < 10))"));
    EXPECT_TRUE(database.Run("INSERT INTO t (a, b) VALUES (1, 2)"));
    EXPECT_FALSE(database.Run("INSERT INTO t (a, b) VALUES (1, 3)"));
    EXPECT_FALSE(database.Run("INSERT INTO t (a, b) VALUES (2, 10)"));
    EXPECT_TRUE(database.Run("INSERT INTO t (a, b) VALUES (2, 3)"));
    EXPECT_EQ(database.Lines(), (std::vector<std::string>{
                                    "error Test DBConnection: UNIQUE constraint failed: t.a in statement: "
                                    "INSERT INTO t (a, b) VALUES (?, ?)",
                                    "error Test DBConnection: CHECK constraint failed: b < 10 in "
                                    "statement: INSERT INTO t (a, b) VALUES (?, ?)"}));
    EXPECT_EQ(database.Rows("SELECT a, b FROM t"), "1|2\n2|3");
}

TEST(StatementShape, HoldsNoLockBetweenStatements) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    EXPECT_TRUE(database.Run("INSERT INTO t VALUES (1)"));
    EXPECT_FALSE(database.Run("INSERT INTO t VALUES (1, 2)"));
    EXPECT_EQ(database.Rows("SELECT a FROM t"), "1");
    const Sqlite other(database.Path().GetString());
    EXPECT_EQ(other.Column("PRAGMA wal_checkpoint(TRUNCATE)").front(), "0");
    EXPECT_TRUE(database.Run("vacuum"));
    EXPECT_TRUE(database.Run("INSERT INTO t VALUES (2)"));
    EXPECT_TRUE(database.Run("DROP TABLE t"));
}

TEST(StatementShape, HoldsTheStatementsUsedLastAlone) {
    constexpr int kHeld = 64;
    PrepareCounter counter;
    TestDatabase database;
    const auto insert = [&](int table) {
        LumString sql;
        sql.Printf("INSERT INTO t%d (a) VALUES (%d)", table, table);
        EXPECT_TRUE(database.Run(sql));
    };
    for (int i = 0; i <= kHeld; ++i) {
        LumString sql;
        sql.Printf("CREATE TABLE t%d (a)", i);
        EXPECT_TRUE(database.Run(sql));
    }
    for (int i = 0; i < kHeld; ++i) {
        insert(i);
    }
    static_cast<void>(counter.Take());
    for (int i = 0; i < kHeld; ++i) {
        insert(i);
    }
    EXPECT_EQ(counter.Take(), 0);
    insert(kHeld);
    insert(1);
    EXPECT_EQ(counter.Take(), 1);
    insert(0);
    EXPECT_EQ(counter.Take(), 1);
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t0"), "3");
}

TEST(StatementShape, TakesStatementsOfManyValues) {
    for (const int count : {95, 96, 97, 500}) {
        TestDatabase database;
        std::string columns = "c0";
        std::string values = "'v0'";
        for (int i = 1; i < count; ++i) {
            columns += ", c" + std::to_string(i);
            values += ", 'v''" + std::to_string(i) + "'";
        }
        EXPECT_TRUE(database.Run(LumString("CREATE TABLE t (" + columns + ")")));
        EXPECT_TRUE(database.Run(LumString("INSERT INTO t (" + columns + ") VALUES (" + values + ")")));
        const std::string last = std::to_string(count - 1);
        EXPECT_EQ(database.Rows(LumString("SELECT c0, c1, c" + last + " FROM t")), "v0|v'1|v'" + last);
    }
}

}  // namespace
