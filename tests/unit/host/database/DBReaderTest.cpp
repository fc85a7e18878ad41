#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/database/DBReader.h"
#include "support/Sqlite.h"
#include "support/TempDirectory.h"

namespace {

using testing::HasSubstr;

/// A database with a small table, and a reader of it.
class DBReaderTest : public testing::Test {
protected:
    DBReaderTest() : database_(directory_ / "a.sqlite3") {
        database_.Run(
            "PRAGMA journal_mode = wal; CREATE TABLE T (Id INTEGER PRIMARY KEY, Name TEXT);"
            "INSERT INTO T VALUES (1, 'ann'), (2, NULL), (3, 'carol')");
    }

    void Open() { ASSERT_TRUE(reader_.Open(directory_.At("a.sqlite3"), error_)) << error_.GetString(); }
    /// The first column of all rows, or the reason why there are none.
    std::string Read(const LumString& sql) {
        if (!reader_.Begin(sql, error_)) {
            return std::string("refused: ") + error_.GetString();
        }
        std::string cells;
        auto step = reader_.Next(error_);
        for (; step == DBReader::Step::kRow; step = reader_.Next(error_)) {
            cells += std::string(reader_.GetText(0)) + ";";
        }
        return step == DBReader::Step::kEnd ? cells : std::string("failed: ") + error_.GetString();
    }

    const TempDirectory directory_;
    const Sqlite database_;
    DBReader reader_;
    LumString error_;
};

TEST_F(DBReaderTest, ReadsRowsInOrder) {
    Open();
    EXPECT_EQ(Read("SELECT Name FROM T ORDER BY Id DESC;"), "carol;;ann;");
    EXPECT_EQ(Read("SELECT Name FROM T WHERE Id > 5"), "");
}

TEST_F(DBReaderTest, TellsEachKind) {
    Open();
    ASSERT_TRUE(reader_.Begin("SELECT 5000000000 AS Big, 0.5, 'te' || 'xt', NULL, x'00ff'", error_));
    EXPECT_EQ(reader_.GetColumnCount(), 5U);
    EXPECT_EQ(reader_.GetColumnName(0), "Big");
    ASSERT_EQ(reader_.Next(error_), DBReader::Step::kRow);
    EXPECT_EQ(reader_.GetKind(0), DBReader::Kind::kInteger);
    EXPECT_EQ(reader_.GetInteger(0), 5'000'000'000);
    EXPECT_EQ(reader_.GetText(0), "5000000000");
    EXPECT_EQ(reader_.GetKind(1), DBReader::Kind::kReal);
    EXPECT_EQ(reader_.GetReal(1), 0.5);
    EXPECT_EQ(reader_.GetKind(2), DBReader::Kind::kText);
    EXPECT_EQ(reader_.GetText(2), "text");
    EXPECT_EQ(reader_.GetKind(3), DBReader::Kind::kNull);
    EXPECT_EQ(reader_.GetText(3), "");
    EXPECT_EQ(reader_.GetKind(4), DBReader::Kind::kBlob);
}

TEST_F(DBReaderTest, ReadsWhatAnotherProgramWritesMeanwhile) {
    Open();
    database_.Run("INSERT INTO T VALUES (4, 'dora')");
    EXPECT_EQ(Read("SELECT Name FROM T WHERE Id = 4"), "dora;");
}

TEST_F(DBReaderTest, RefusesWhatDoesAnythingButRead) {
    Open();
    const std::string aside = directory_ / "b.sqlite3";
    for (const std::string& sql :
         {std::string("DELETE FROM T"), std::string("INSERT INTO T VALUES (9, 'x')"),
          std::string("UPDATE T SET Name = 'x'"), std::string("DROP TABLE T"),
          std::string("CREATE TEMP TABLE U (Id)"), std::string("BEGIN"),
          std::string("PRAGMA journal_mode = delete"), "ATTACH '" + aside + "' AS b"}) {
        EXPECT_EQ(Read(LumString(std::string_view(sql))),
                  "refused: the statement does something else than reading")
            << sql;
    }
    EXPECT_EQ(Read(LumString("VACUUM INTO '" + aside + "'")), "failed: authorization denied");
    EXPECT_FALSE(directory_.Has("b.sqlite3"));
    EXPECT_EQ(Read("SELECT count(*) FROM T"), "3;");
    EXPECT_EQ(Read("PRAGMA table_info('T')"), "0;1;");
}

TEST_F(DBReaderTest, TakesExactlyOneStatement) {
    Open();
    constexpr const char* kOne = "refused: one statement must be given, and only one";
    EXPECT_EQ(Read("SELECT 1; SELECT 2"), kOne);
    EXPECT_EQ(Read("SELECT 1; DELETE FROM T"), kOne);
    EXPECT_EQ(Read(""), kOne);
    EXPECT_EQ(Read(" ; "), kOne);
    EXPECT_EQ(Read("SELECT 1 ; \n"), "1;");
}

TEST_F(DBReaderTest, SaysWhatTheDatabaseDoesNotUnderstand) {
    Open();
    EXPECT_EQ(Read("SELECT Absent FROM T"), "refused: no such column: Absent");
    EXPECT_THAT(Read("SELEKT"), HasSubstr("syntax error"));
    EXPECT_THAT(Read("SELECT abs(-9223372036854775808)"), HasSubstr("failed: integer overflow"));
    EXPECT_EQ(Read("SELECT 1"), "1;") << "a statement that failed is no hindrance to the next";
}

TEST_F(DBReaderTest, ViewsLiveAsLongAsTheReader) {
    Open();
    ASSERT_TRUE(reader_.DefineView("v", "SELECT Name AS Who FROM T WHERE Name NOT NULL", error_));
    EXPECT_EQ(Read("SELECT Who FROM v"), "ann;carol;");
    EXPECT_FALSE(reader_.DefineView("w", "SELECT", error_));
    EXPECT_THAT(error_.GetString(), HasSubstr("incomplete input"));
    Open();
    EXPECT_EQ(Read("SELECT Who FROM v"), "refused: no such table: v");
}

TEST_F(DBReaderTest, SaysWhyAFileCannotBeRead) {
    EXPECT_FALSE(reader_.Open(directory_.At("nothing.sqlite3"), error_));
    EXPECT_EQ(error_, "unable to open database file");
    EXPECT_FALSE(directory_.Has("nothing.sqlite3"));
    directory_.Write("text.sqlite3", std::string(5000, 'x'));
    EXPECT_FALSE(reader_.Open(directory_.At("text.sqlite3"), error_));
    EXPECT_EQ(error_, "file is not a database");
}

}  // namespace
