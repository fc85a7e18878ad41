#include <gtest/gtest.h>

#include "host/database/SqlText.h"

namespace {

std::string Quoted(std::string_view text) {
    std::string sql = "x = ";
    LumAppendQuoted(sql, text);
    EXPECT_EQ(LumQuoted(text).View(), sql.substr(4));
    return sql.substr(4);
}

TEST(SqlText, PutsATextBetweenQuotes) {
    EXPECT_EQ(Quoted("plain"), "'plain'");
    EXPECT_EQ(Quoted(""), "''");
}

TEST(SqlText, DoublesEachQuoteInIt) {
    EXPECT_EQ(Quoted("O'Brien"), "'O''Brien'");
    EXPECT_EQ(Quoted("'"), "''''");
    EXPECT_EQ(Quoted("''a'"), "'''''a'''");
}

TEST(SqlText, LeavesEveryOtherByteAsItIs) {
    std::string every;
    for (int byte = 0; byte < 256; ++byte) {
        if (byte != '\'') {
            every.push_back(static_cast<char>(byte));
        }
    }
    EXPECT_EQ(Quoted(every), "'" + every + "'");
}

}  // namespace
