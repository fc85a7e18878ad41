#include <string>

#include <gtest/gtest.h>

#include "client/text/TextTable.h"

namespace {

TEST(TextTableDisplayWidth, CountsColumnsAndNotBytes) {
    EXPECT_EQ(DisplayWidth("abc"), 3U);
    EXPECT_EQ(DisplayWidth("\u00fc"), 1U);
    EXPECT_EQ(DisplayWidth("\u65e5\u672c"), 4U) << "wide characters";
    EXPECT_EQ(DisplayWidth("e\u0301"), 1U) << "a combining accent";
}

TEST(TextTableHarmless, ShowsWhatATerminalWouldActOn) {
    EXPECT_EQ(Harmless("a\n\r\t\x1b[1m\x7f"), "a\\n\\r\\t\\x1b[1m\\x7f");
    EXPECT_EQ(Harmless(std::string_view("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(Harmless("a\u202eb\u2028c\u061cd\u2066e\u200ff"), "a\\u202eb\\u2028c\\u061cd\\u2066e\\u200ff");
    EXPECT_EQ(Harmless("\u0085"), "\\u0085");
    EXPECT_EQ(Harmless("caf\xE9"), "caf\ufffd");
    EXPECT_EQ(Harmless("\U0010ffff"), "\\U0010ffff");
}

TEST(TextTableHarmless, LeavesTextAlone) {
    EXPECT_EQ(Harmless("M\u00fcller \u65e5\u672c 'x'"), "M\u00fcller \u65e5\u672c 'x'");
}

TEST(TextTable, AlignsByWidthAndEndsLinesWithoutBlanks) {
    TextTable table;
    table.AddColumn("Name");
    table.AddColumn("Count", TextTable::Align::kRight);
    table.AddColumn("Note");
    table.AddRow({"\u65e5\u672c\u8a9e", "5", "n"});
    table.AddRow({"a", "12345678"});
    table.AddRow({"b", "1", "x", "too many"});
    EXPECT_EQ(table.Render(),
              "Name       Count  Note\n"
              "------  --------  ----\n"
              "\u65e5\u672c\u8a9e         5  n\n"
              "a       12345678\n"
              "b              1  x\n");
}

TEST(TextTable, IsEmptyWithoutColumns) {
    TextTable table;
    table.AddRow({"x"});
    EXPECT_EQ(table.Render(), "");
}

TEST(TextTable, CutsWideCellsAtACharacter) {
    TextTable table;
    table.AddColumn("C");
    table.AddRow({std::string(TextTable::kMaxCellWidth, 'x')});
    table.AddRow({std::string(TextTable::kMaxCellWidth + 1, 'x')});
    std::string wide;
    for (std::size_t i = 0; i < TextTable::kMaxCellWidth; ++i) {
        wide += "\u65e5";
    }
    table.AddRow({wide});
    const std::string rendered = table.Render();
    EXPECT_NE(rendered.find("\n" + std::string(TextTable::kMaxCellWidth, 'x') + "\n"), std::string::npos);
    EXPECT_NE(rendered.find("\n" + std::string(TextTable::kMaxCellWidth - 1, 'x') + "\u2026\n"),
              std::string::npos);
    EXPECT_EQ(DisplayWidth(rendered.substr(rendered.rfind('\n', rendered.size() - 2) + 1)), 99U)
        << "a wide character is not halved";
}

}  // namespace
