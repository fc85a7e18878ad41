#include <gtest/gtest.h>

#include "fleet/forward/FlatJson.h"

namespace {

TEST(FlatJson, GivesTextsNumbersAndTruths) {
    FlatJson json;
    ASSERT_TRUE(json.Read(R"({"a":"x\u00e9","n":18446744073709551615,"t":true,"f":false})"));
    EXPECT_EQ(json.Text("a"), "x\xC3\xA9");
    EXPECT_EQ(json.Number("n"), 18'446'744'073'709'551'615U);
    EXPECT_TRUE(json.IsTrue("t"));
    EXPECT_FALSE(json.IsTrue("f"));
}

TEST(FlatJson, WhatIsOfAnotherKindIsNotThere) {
    FlatJson json;
    ASSERT_TRUE(
        json.Read(R"({"a":null,"b":-1,"c":1.5,"d":{"a":"deep","e":[true]},"e":["x"],"s":"1","n":1})"));
    for (const char* const name : {"a", "b", "c", "d", "e", "n", "nowhere"}) {
        EXPECT_EQ(json.Text(name), "") << name;
        EXPECT_FALSE(json.IsTrue(name)) << name;
    }
    for (const char* const name : {"a", "b", "c", "d", "e", "s", "nowhere"}) {
        EXPECT_EQ(json.Number(name), std::nullopt) << name;
    }
    EXPECT_EQ(json.Number("n"), 1U);
}

TEST(FlatJson, TheLastOfOneNameCounts) {
    FlatJson json;
    ASSERT_TRUE(json.Read(R"({"a":"first","a":"last"})"));
    EXPECT_EQ(json.Text("a"), "last");
}

TEST(FlatJson, IsOneObjectAndNothingElse) {
    FlatJson json;
    for (const char* const text : {"", "{", "null", "1", "\"a\"", "[]", R"([{"a":"x"}])", R"({"a":"x"} more)",
                                   R"({"a":"x")", R"({"a":})", "{\"a\":\"\xFF\"}", R"({"a":"x"}{})"}) {
        EXPECT_FALSE(json.Read(text)) << text;
        EXPECT_EQ(json.Text("a"), "") << text;
    }
    EXPECT_TRUE(json.Read(" {} "));
    EXPECT_TRUE(json.Read(R"({"deep":)" + std::string(10'000, '[') + std::string(10'000, ']') + "}"));
}

}  // namespace
