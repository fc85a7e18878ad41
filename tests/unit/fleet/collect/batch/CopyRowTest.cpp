#include <gtest/gtest.h>

#include "fleet/collect/batch/CopyRow.h"

namespace {

using std::string_literals::operator""s;

TEST(CopyRow, IsTheBytesThatTheDatabaseDocuments) {
    EXPECT_EQ(CopyStart(), "PGCOPY\n\377\r\n\0\0\0\0\0\0\0\0\0"s);
    EXPECT_EQ(CopyEnd(), "\377\377");
    CopyRows rows;
    rows.BeginRow(7);
    rows.Null();
    rows.Int32(-2);
    rows.Int64(258);
    rows.Double(1.5);
    rows.Bool(true);
    rows.Timestamp(946'684'801);
    rows.Text("ab");
    EXPECT_EQ(rows.GetBytes(),
              "\0\7"
              "\377\377\377\377"
              "\0\0\0\4\377\377\377\376"
              "\0\0\0\10\0\0\0\0\0\0\1\2"
              "\0\0\0\10\x3f\xf8\0\0\0\0\0\0"
              "\0\0\0\1\1"
              "\0\0\0\10\0\0\0\0\0\x0f\x42\x40"
              "\0\0\0\2"s
              "ab"s);
}

TEST(CopyRow, TextsBecomeStorable) {
    EXPECT_EQ(StorableText("a\0b\xFFü"s),
              "a\xEF\xBF\xBD"
              "b\xEF\xBF\xBDü");
    CopyRows rows;
    rows.Text("\0"s);
    EXPECT_EQ(rows.GetBytes(), "\0\0\0\3\xEF\xBF\xBD"s);
    rows.GetBytes().clear();
    rows.Json("{}");
    EXPECT_EQ(rows.GetBytes(), "\0\0\0\3\1{}"s);
}

TEST(CopyRow, ANumberIsWrittenOver) {
    std::string bytes = "xx12345678yy";
    OverwriteInt64(bytes, 2, 1);
    EXPECT_EQ(bytes, "xx\0\0\0\0\0\0\0\1yy"s);
}

}  // namespace
