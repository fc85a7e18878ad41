#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "model/Vocabulary.h"

namespace {

template <class Code>
uint32_t Number(Code code) {
    return static_cast<uint32_t>(code);
}

TEST(Vocabulary, KnowsEachParameterType) {
    const std::vector<std::pair<const char*, uint32_t>> table = {
        {"_STRING_", 1}, {"_INTEGER_", 2}, {"_DOUBLE_", 3},  {"_TIMESTAMP_", 4}, {"_BOOLEAN_", 5},
        {"_ENUM_", 6},   {"_string_", 0},  {" _STRING_", 0}, {"_STRING_ ", 0},   {"", 0}};
    for (const auto& [token, code] : table) {
        EXPECT_EQ(Number(ParamTypeFromText(token)), code) << token;
    }
}

TEST(Vocabulary, KnowsEachOperationAndNoneForEleven) {
    const std::vector<std::pair<const char*, uint32_t>> table = {
        {"_SUM_", 1},     {"_COUNT_", 2},   {"_MIN_", 3},  {"_MAX_", 4},    {"_AVG_", 5},  {"_DATETIME_", 6},
        {"_DATE_", 7},    {"_TIME_", 8},    {"_YEAR_", 9}, {"_MONTH_", 10}, {"_DAY_", 12}, {"_HOUR_", 13},
        {"_MINUTE_", 14}, {"_SECOND_", 15}, {"_WEEK_", 0}, {"_day_", 0},    {"", 0}};
    for (const auto& [token, code] : table) {
        EXPECT_EQ(Number(OperationFromText(token)), code) << token;
    }
}

TEST(Vocabulary, KnowsBothModelTypes) {
    EXPECT_EQ(Number(ModelTypeFromText("_EVENTLOG_MODELTYPE_USER_")), 1U);
    EXPECT_EQ(Number(ModelTypeFromText("_EVENTLOG_MODELTYPE_AUTO_")), 2U);
    EXPECT_EQ(Number(ModelTypeFromText("_EVENTLOG_MODELTYPE_AUTO")), 0U);
    EXPECT_EQ(Number(ModelTypeFromText("")), 0U);
}

TEST(Vocabulary, KnowsEachPolicyInAllThreeSettings) {
    const std::vector<std::pair<const char*, uint32_t>> table = {
        {"_MINUTELY_", 1}, {"_HOURLY_", 2}, {"_DAILY_", 3}, {"_WEEKLY_", 4}, {"_MONTHLY_", 5},
        {"_YEARLY_", 6},   {"_NEVER_", 7},  {"_daily_", 0}, {" _DAILY_", 0}, {"", 0}};
    for (const auto& [token, code] : table) {
        EXPECT_EQ(Number(UploadPolicyFromText(token)), code) << token;
        EXPECT_EQ(Number(DeletionPolicyFromText(token)), code) << token;
        EXPECT_EQ(Number(AggregationPolicyFromText(token)), code) << token;
    }
}

}  // namespace
