#include <gtest/gtest.h>

#include "fleet/collect/database/Database.h"
#include "fleet/collect/database/ModelTables.h"

namespace {

TEST(SqlNames, AMonthHasItsStartAndItsTable) {
    const int32_t month = MonthOf(1'795'000'000);  // 2026-11-18
    EXPECT_EQ(MonthStart(month), "2026-11-01 00:00:00+00");
    EXPECT_EQ(MonthStart(month + 2), "2027-01-01 00:00:00+00");
    EXPECT_EQ(MonthTable("event_A", month), "lum_month.\"event_A_202611\"");
    EXPECT_EQ(MonthStart(MonthOf(-1)), "1969-12-01 00:00:00+00");
}

TEST(SqlNames, LongOnesAreShortenedAndStayApart) {
    const std::string common(60, 'x');
    const std::string one = DerivedSqlName("event_", common + "1");
    EXPECT_EQ(DerivedSqlName("event_", "Logon"), "event_Logon");
    EXPECT_EQ(one.size(), 6U + 40U + 1U + 8U);
    EXPECT_NE(one, DerivedSqlName("event_", common + "2"));
    // Characters are not cut in half.
    std::string umlauts = "x";
    for (int i = 0; i < 40; ++i) {
        umlauts += "ä";
    }
    EXPECT_EQ(DerivedSqlName("", umlauts).find('_'), 39U);
}

TEST(SqlNames, AColumnTakesNoNameThatIsTaken) {
    EXPECT_EQ(ChooseColumn({"Size", "_INTEGER_"}, {}), "Size");
    EXPECT_EQ(ChooseColumn({"Size", "_DOUBLE_"}, {"Size"}), "Size_double");
    EXPECT_EQ(ChooseColumn({"Size", "_DOUBLE_"}, {"Size", "Size_double"}), "Size_double_2");
    EXPECT_EQ(ChooseColumn({"device", "_STRING_"}, {}), "device_text");
    EXPECT_EQ(ChooseColumn({"xmin", "_INTEGER_"}, {}), "xmin_integer");
}

TEST(SqlNames, AreQuotedAndArraysToo) {
    EXPECT_EQ(QuotedName("a\"b"), "\"a\"\"b\"");
    EXPECT_EQ(ArrayText({"a", std::nullopt, "b\"\\,{}"}), R"({"a",NULL,"b\"\\,{}"})");
    EXPECT_EQ(ArrayText({}), "{}");
}

}  // namespace
