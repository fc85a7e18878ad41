#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "client/connection/Answer.h"
#include "client/model/ModelDefinition.h"
#include "support/TimeZone.h"

namespace {

using Json = nlohmann::ordered_json;

TEST(Answer, TakesWhatIsOfAnotherKindForAbsent) {
    EXPECT_TRUE(MemberOf(Json::array({1}), "0").is_null());
    EXPECT_TRUE(MemberOf(Json::object(), "a").is_null());
    EXPECT_EQ(MemberOf({{"a", 1}}, "a"), 1);
    EXPECT_EQ(TextOf(5), "");
    EXPECT_EQ(RowCount(7), 0U);
    EXPECT_EQ(RowCount({{"a", Json::array({1, 2})}, {"b", Json::array({1})}, {"c", 3}}), 2U);
}

TEST(Answer, TakesASingleValueForAListOfOne) {
    const Json list = {1, 2};
    EXPECT_EQ(ValueAt(list, 1), 2);
    EXPECT_TRUE(ValueAt(list, 2).is_null());
    EXPECT_EQ(ValueAt("x", 0), "x");
    EXPECT_TRUE(ValueAt("x", 1).is_null());
}

TEST(Answer, LeavesEmptyPositionsOutOfRows) {
    const Json columns = Json::parse(R"({"a": [1, null], "b": ["x", "y", "z"], "c": "no list"})");
    EXPECT_EQ(RowsOf(columns), Json::parse(R"([{"a": 1, "b": "x"}, {"b": "y"}, {"b": "z"}])"));
    EXPECT_EQ(RowsOf("none"), Json::array());
}

TEST(Answer, ShowsAValueByItsType) {
    const TimeZone zone("UTC");
    EXPECT_EQ(CellOf(nullptr, kTypeString), "");
    EXPECT_EQ(CellOf("text", kTypeTimestamp), "text");
    EXPECT_EQ(CellOf(86400, kTypeTimestamp), "1970-01-02T00:00:00+00:00");
    EXPECT_EQ(CellOf(1.5, kTypeTimestamp), "1.5");
    EXPECT_EQ(CellOf(86400, kTypeInteger), "86400");
    EXPECT_EQ(CellOf(true, kTypeBoolean), "true");
}

}  // namespace
