#include <string>

#include <gtest/gtest.h>

#include "support/TestDatabase.h"

namespace {

/// How the line of a failure shows the statement. There are no tables, so each fails.
std::string Shown(std::string_view sql) {
    TestDatabase database;
    EXPECT_FALSE(database.Run(LumString(sql))) << sql;
    const std::string start = " in statement: ";
    const std::string line = database.Lines().empty() ? start : database.Lines().back();
    return line.substr(line.find(start) + start.size());
}

TEST(StatementText, ShowsAQuestionMarkForEachValue) {
    EXPECT_EQ(Shown("INSERT INTO Event_A2 (E_Date, C_1) VALUES (12, 'O''Brien', 1.5, '', x'00ff', NULL);"),
              "INSERT INTO Event_A2 (E_Date, C_1) VALUES (?, ?, ?, ?, ?, NULL);");
    EXPECT_EQ(Shown("SELECT .5, 1e-5, 2.E+7, 0x1F, -3 FROM t WHERE a<7"),
              "SELECT ?, ?, ?, ?, -? FROM t WHERE a<?");
    EXPECT_EQ(Shown("UPDATE t SET b='1'WHERE c=X'00'"), "UPDATE t SET b=?WHERE c=?");
}

TEST(StatementText, LeavesNamesAndWordsAsTheyAre) {
    for (const char* const sql :
         {"", "SELECT a1, _2, $3 FROM Event_7 t7", "SELECT \"7 'x' 8\" FROM \xc3\xa4\x31",
          "SELECT a FROM t /* 'no' 5 */ GROUP BY b -- it's 7", "(", "ROLLBACK"}) {
        EXPECT_EQ(Shown(sql), sql);
    }
}

TEST(StatementText, ShowsNothingOfATextThatDoesNotEnd) {
    EXPECT_EQ(Shown("INSERT INTO t VALUES ('secret"), "INSERT INTO t VALUES (?");
    EXPECT_EQ(Shown("INSERT INTO t VALUES ('sec''ret''"), "INSERT INTO t VALUES (?");
    EXPECT_EQ(Shown("SELECT x'"), "SELECT ?");
    EXPECT_EQ(Shown("SELECT a, 1."), "SELECT a, ?");
}

TEST(StatementText, ReadsTheSameWhateverTheValuesAre) {
    EXPECT_EQ(Shown("INSERT INTO t VALUES (1, 'a')"), Shown("INSERT INTO t VALUES (4711, 'b''c')"));
}

TEST(StatementText, IsCutAt500CharactersOfWhatIsShown) {
    EXPECT_EQ(Shown("SELECT '" + std::string(1000, 'x') + "', b"), "SELECT ?, b");
    EXPECT_EQ(Shown(std::string(10000, 'n')), std::string(500, 'n'));
}

TEST(StatementText, StandsAsItIsInATraceLine) {
    LogLines lines;
    lines.Context().SetLevel(LumLogLevel::kTrace);
    TestDatabase database;
    database.Debug().SetContext(&lines.Context());
    EXPECT_FALSE(database.Run("INSERT INTO t VALUES ('secret')"));
    EXPECT_EQ(lines.Said(LumLogLevel::kTrace).back(),
              "trace Test DBConnection: the statement as it stands: INSERT INTO t VALUES ('secret')");
    database.Debug().SetContext(nullptr);
}

}  // namespace
