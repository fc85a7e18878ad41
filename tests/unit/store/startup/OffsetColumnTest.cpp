#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/startup/OffsetColumn.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> Texts(const std::vector<LumString>& statements) {
    std::vector<std::string> texts;
    for (const LumString& statement : statements) {
        texts.emplace_back(statement.View());
    }
    return texts;
}

struct TextCase {
    const char* what;
    const char* given;
    const char* expected;
};

TEST(OffsetColumn, StandsRightBeforeTheDevice) {
    const TextCase cases[] = {
        {"a plain table",
         "CREATE TABLE Event_A (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_DeviceId INTEGER NOT NULL, C_X "
         "TEXT)",
         "CREATE TABLE Event_A (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_GMT_Offset INTEGER, E_DeviceId "
         "INTEGER NOT NULL, C_X TEXT)"},
        {"only the first occurrence counts", "CREATE TABLE T (E_DeviceId, C_E_DeviceId)",
         "CREATE TABLE T (E_GMT_Offset INTEGER, E_DeviceId, C_E_DeviceId)"},
        {"the table is called like the column", "CREATE TABLE Event_E_DeviceId (E_DeviceId)",
         "CREATE TABLE Event_E_DeviceId (E_GMT_Offset INTEGER, E_DeviceId)"},
        {"another letter case is another text", "CREATE TABLE T (E_DeviceID)", ""},
        {"no such column", "CREATE TABLE T (a, b)", ""},
        {"no parenthesis", "CREATE TABLE E_DeviceId AS SELECT 1", ""},
        {"nothing", "", ""},
    };
    for (const TextCase& one : cases) {
        EXPECT_EQ(WithOffsetColumn(one.given).View(), one.expected) << one.what;
    }
}

TEST(OffsetColumn, ColumnsAreListedByName) {
    const TextCase cases[] = {
        {"a plain table", "CREATE TABLE T (E_Id INTEGER PRIMARY KEY, E_DeviceId INTEGER NOT NULL, C_X TEXT)",
         "E_Id, E_DeviceId, C_X"},
        {"a last column without a type", "CREATE TABLE T (A TEXT, B )", "A, B"},
        {"a last column right at the parenthesis", "CREATE TABLE T (A TEXT, B)", "A, B"},
        {"one column", "CREATE TABLE T (A)", "A"},
        {"other blanks", "CREATE TABLE T\n(\n  A\tTEXT,\r\n\tB TEXT\n)", "A, B"},
        {"a comma in a type", "CREATE TABLE T (A DECIMAL(10,2), B TEXT)", "A, 2, B"},
        {"no parenthesis", "CREATE TABLE T AS SELECT 1, 2", ""},
        {"nothing after the parenthesis", "CREATE TABLE T (", ""},
        {"commas alone", "(,,,", ""},
        {"nothing", "", ""},
    };
    for (const TextCase& one : cases) {
        EXPECT_EQ(ColumnList(one.given).View(), one.expected) << one.what;
    }
}

TEST(OffsetColumn, IsZeroInWhatIsSelected) {
    const TextCase cases[] = {
        {"in its place", "E_Id, E_GMT_Offset, E_DeviceId", "E_Id, 0 AS E_GMT_Offset, E_DeviceId"},
        {"absent", "E_Id, E_DeviceId", "E_Id, E_DeviceId"},
        {"nothing", "", ""},
    };
    for (const TextCase& one : cases) {
        EXPECT_EQ(SelectList(one.given).View(), one.expected) << one.what;
    }
}

TEST(OffsetColumn, TakesSixStatementsForATable) {
    EXPECT_THAT(
        Texts(OffsetStatements(
            "Event_A", "Event_ATemp",
            "CREATE TABLE Event_A (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_DeviceId INTEGER NOT "
            "NULL, E_GroupId INTEGER NOT NULL, C_A TEXT, C_Event_A )")),
        ElementsAre("CREATE TABLE Event_ATemp (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, "
                    "E_GMT_Offset INTEGER, E_DeviceId INTEGER NOT NULL, E_GroupId INTEGER NOT NULL, "
                    "C_A TEXT, C_Event_A )",
                    "INSERT INTO Event_ATemp (E_Id, E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, "
                    "C_A, C_Event_A) SELECT E_Id, E_Date, 0 AS E_GMT_Offset, E_DeviceId, E_GroupId, "
                    "C_A, C_Event_A FROM Event_A",
                    "DROP TABLE Event_A",
                    "CREATE TABLE Event_A (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_GMT_Offset "
                    "INTEGER, E_DeviceId INTEGER NOT NULL, E_GroupId INTEGER NOT NULL, C_A TEXT, "
                    "C_Event_A )",
                    "INSERT INTO Event_A SELECT * FROM Event_ATemp", "DROP TABLE Event_ATemp"));
}

TEST(OffsetColumn, IsNotAddedTwice) {
    EXPECT_TRUE(HasOffsetColumn("CREATE TABLE T (E_GMT_Offset INTEGER, E_DeviceId)"));
    EXPECT_FALSE(HasOffsetColumn("CREATE TABLE T (E_DeviceId)"));
    EXPECT_THAT(OffsetStatements("T", "TTemp", "CREATE TABLE T (E_GMT_Offset INTEGER, E_DeviceId)"),
                IsEmpty());
}

TEST(OffsetColumn, MakesNothingOfWhatIsNoEventTable) {
    for (const char* const creation : {"", "x", "(", ")", "CREATE TABLE T (a)", "E_DeviceId", "\xff\xfe(,"}) {
        EXPECT_THAT(OffsetStatements("T", "TTemp", creation), IsEmpty()) << creation;
    }
}

}  // namespace
