#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "model/ParamTypes.h"

namespace {

/// The SQL text that a value of the container becomes, or "none" where the type does not take it.
std::string Rendered(ParamType type, const LumContainer& values) {
    std::string sql = "(";
    const bool taken = FindParamType(type)->appendValue(values, "x", sql);
    EXPECT_TRUE(taken || sql == "(") << sql;
    return taken ? sql.substr(1) : "none";
}

std::string RenderedDefault(ParamType type, const char* text) {
    std::string sql = "(";
    FindParamType(type)->appendDefault(text, sql);
    return sql.substr(1);
}

constexpr ParamType kTexts[] = {ParamType::kString, ParamType::kEnum};
constexpr ParamType kIntegers[] = {ParamType::kInteger, ParamType::kTimestamp};

TEST(ParamTypes, HasARowForEachTypeInTheOrderOfTheCodes) {
    ASSERT_EQ(kParamTypes.size(), 6U);
    const char* const tokens[] = {"_STRING_", "_INTEGER_", "_DOUBLE_", "_TIMESTAMP_", "_BOOLEAN_", "_ENUM_"};
    const char* const columns[] = {"TEXT", "INTEGER", "FLOAT", "TIMESTAMP", "BOOLEAN", "ENUM"};
    for (uint32_t i = 0; i < kParamTypes.size(); ++i) {
        EXPECT_EQ(static_cast<uint32_t>(kParamTypes[i].type), i + 1);
        EXPECT_EQ(kParamTypes[i].token, tokens[i]);
        EXPECT_EQ(kParamTypes[i].columnType, columns[i]);
        EXPECT_EQ(FindParamType(kParamTypes[i].type), &kParamTypes[i]);
    }
}

TEST(ParamTypes, KnowsNoOtherType) {
    for (const uint32_t code : {0U, 7U, 0xFFFFFFFFU}) {
        EXPECT_EQ(FindParamType(static_cast<ParamType>(code)), nullptr) << code;
    }
}

TEST(ParamTypes, QuotesTexts) {
    LumContainer values;
    values.SetString("x", "O'Brien");
    for (const ParamType type : kTexts) {
        EXPECT_EQ(Rendered(type, values), "'O''Brien'");
    }
}

TEST(ParamTypes, WritesIntegersAsTheyStand) {
    LumContainer values;
    values.SetInt32("x", std::numeric_limits<int32_t>::min());
    for (const ParamType type : kIntegers) {
        EXPECT_EQ(Rendered(type, values), "-2147483648");
    }
    values.SetInt32("x", 0xFFFFFFFFU);
    EXPECT_EQ(Rendered(ParamType::kInteger, values), "-1");
}

TEST(ParamTypes, QuotesDoublesWithSixDecimals) {
    const std::pair<double, std::string> cases[] = {
        {2.5, "'2.500000'"}, {-0.0000004, "'-0.000000'"}, {1e15, "'1000000000000000.000000'"}};
    for (const auto& [value, text] : cases) {
        LumContainer values;
        values.SetDouble("x", value);
        EXPECT_EQ(Rendered(ParamType::kDouble, values), text);
    }
    LumContainer largest;
    largest.SetDouble("x", std::numeric_limits<double>::max());
    EXPECT_EQ(Rendered(ParamType::kDouble, largest).size(), 309U + 9U);
}

TEST(ParamTypes, WritesBooleansAsDigits) {
    LumContainer values;
    values.SetBool("x", true);
    EXPECT_EQ(Rendered(ParamType::kBoolean, values), "1");
    values.SetBool("x", false);
    EXPECT_EQ(Rendered(ParamType::kBoolean, values), "0");
}

TEST(ParamTypes, TakesNoValueOfAnotherKind) {
    LumContainer text;
    text.SetString("x", "1");
    LumContainer number;
    number.SetInt32("x", 1);
    LumContainer nested;
    nested.SetContainer("x", LumContainer());
    for (const ParamTypeTraits& traits : kParamTypes) {
        const bool isText = traits.columnType == "TEXT" || traits.columnType == "ENUM";
        const bool isInteger = traits.columnType == "INTEGER" || traits.columnType == "TIMESTAMP";
        EXPECT_EQ(Rendered(traits.type, text) == "none", !isText) << traits.token;
        EXPECT_EQ(Rendered(traits.type, number) == "none", !isInteger) << traits.token;
        EXPECT_EQ(Rendered(traits.type, nested), "none") << traits.token;
        EXPECT_EQ(Rendered(traits.type, LumContainer()), "none") << traits.token;
    }
}

TEST(ParamTypes, QuotesTheDefaultsOfTextsAlone) {
    for (const ParamType type : kTexts) {
        EXPECT_EQ(RenderedDefault(type, "it's"), "'it''s'");
    }
    for (const ParamType type : {ParamType::kInteger, ParamType::kTimestamp, ParamType::kBoolean}) {
        EXPECT_EQ(RenderedDefault(type, "it's 1"), "it's 1");
    }
    EXPECT_EQ(RenderedDefault(ParamType::kDouble, "0.5'"), "'0.5''");
}

}  // namespace
