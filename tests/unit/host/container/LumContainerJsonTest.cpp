#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/container/LumContainer.h"
#include "host/text/LumUtf8.h"

namespace {

using namespace std::string_view_literals;
using testing::HasSubstr;

LumContainer Read(std::string_view json) {
    LumContainer container;
    container.SetInt32("Old", 1);
    LumString error("untouched");
    EXPECT_TRUE(container.FromJson(json, error)) << error.GetString();
    EXPECT_EQ(error, "untouched");
    return container;
}

/// What the JSON comes back as.
std::string Again(std::string_view json) {
    return Read(json).ToJson();
}

/// What FromJson says of a text that it refuses; also sees to it that nothing else happens.
std::string ErrorOf(std::string_view json) {
    LumContainer container;
    container.SetInt32("Kept", 1);
    const LumContainer before = container;
    LumString error;
    EXPECT_FALSE(container.FromJson(json, error)) << json.substr(0, 100);
    EXPECT_EQ(container, before);
    EXPECT_TRUE(LumIsUtf8(error.View()));
    EXPECT_LT(error.GetLength(), 300U);
    return std::string(error.View());
}

std::string Repeated(std::string_view part, std::size_t times) {
    std::string text;
    for (std::size_t i = 0; i < times; ++i) {
        text += part;
    }
    return text;
}

std::string JsonOfReal(double value) {
    LumContainer container;
    container.SetDouble("D", value);
    const std::string json = container.ToJson();
    return json.substr(5, json.size() - 6);
}

std::string JsonOfText(std::string_view text) {
    LumContainer container;
    container.SetString("T", LumString(text));
    const std::string json = container.ToJson();
    return json.substr(5, json.size() - 6);
}

}  // namespace

TEST(LumContainerJson, WritesOneLineInTheOrderOfTheNames) {
    LumContainer inner;
    inner.SetInt32("N", 1);
    LumContainer container;
    container.SetString("Text", "a \"text\"");
    container.SetContainer("Inner", inner);
    container.SetContainer("Empty", LumContainer());
    container.SetInt32("Int", -5);
    container.SetInt32("Big", uint32_t{4000000000});
    container.SetBool("Yes", true);
    container.SetBool("No", false);
    container.SetDouble("Double", 2.0);
    container.SetInt32("List", 1, 0);
    container.SetString("List", "x", 2);
    container.SetContainer("List", inner, 3);
    container.SetDouble("List", 0.5, 4);
    container.SetBool("One", true, 0);
    EXPECT_EQ(
        container.ToJson(),
        R"({"Text":"a \"text\"","Inner":{"N":1},"Empty":{},"Int":-5,"Big":4000000000,"Yes":true,"No":false,)"
        R"("Double":2.0,"List":[1,null,"x",{"N":1},0.5],"One":[true]})");
    EXPECT_EQ(LumContainer().ToJson(), "{}");
}

TEST(LumContainerJson, DoublesAlwaysShowAFractionOrAnExponent) {
    EXPECT_EQ(JsonOfReal(2.0), "2.0");
    EXPECT_EQ(JsonOfReal(0.0), "0.0");
    EXPECT_EQ(JsonOfReal(-0.0), "-0.0");
    EXPECT_EQ(JsonOfReal(0.1), "0.1");
    EXPECT_EQ(JsonOfReal(-1234.5), "-1234.5");
    EXPECT_EQ(JsonOfReal(100000.0), "100000.0");
    EXPECT_EQ(JsonOfReal(123456789012345.0), "123456789012345.0");
    EXPECT_EQ(JsonOfReal(9007199254740993.0), "9.007199254740992e+15");
    EXPECT_EQ(JsonOfReal(1e16), "1e+16");
    EXPECT_EQ(JsonOfReal(0.0001), "0.0001");
    EXPECT_EQ(JsonOfReal(0.00001), "1e-05");
    EXPECT_EQ(JsonOfReal(0.000001), "1e-06");
    EXPECT_EQ(JsonOfReal(std::numeric_limits<double>::max()), "1.7976931348623157e+308");
    EXPECT_EQ(JsonOfReal(5e-324), "5e-324");
}

TEST(LumContainerJson, WhatJsonCannotWriteIsNull) {
    EXPECT_EQ(JsonOfReal(std::numeric_limits<double>::infinity()), "null");
    EXPECT_EQ(JsonOfReal(-std::numeric_limits<double>::infinity()), "null");
    EXPECT_EQ(JsonOfReal(std::nan("")), "null");
}

TEST(LumContainerJson, EscapesTextAndReplacesBrokenBytes) {
    EXPECT_EQ(JsonOfText("plain / text"), R"("plain / text")");
    EXPECT_EQ(JsonOfText(""), R"("")");
    EXPECT_EQ(JsonOfText("\"\\\b\f\n\r\t"), R"("\"\\\b\f\n\r\t")");
    EXPECT_EQ(JsonOfText("a\0b\x01\x1F\x7F"sv), "\"a\\u0000b\\u0001\\u001f\x7F\"");
    EXPECT_EQ(JsonOfText("Zo\u00eb \u20ac \U0001F600"), "\"Zo\u00eb \u20ac \U0001F600\"");
    EXPECT_EQ(JsonOfText("a\xFF"
                         "b\n\xC3"),
              "\"a\ufffd"
              "b\\n\ufffd\"");
    LumContainer container;
    container.SetInt32("na\xFFme\n", 1);
    EXPECT_EQ(container.ToJson(), "{\"na\ufffdme\\n\":1}");
}

TEST(LumContainerJson, TextThatEndsLikeJsonItselfIsNoTrouble) {
    LumContainer container;
    for (const char* text : {"{", "[", ":", ",", "}"}) {
        container.SetString(text, text, container.CountPositions(text) + 1);
    }
    EXPECT_EQ(container.ToJson(),
              R"({"{":[null,"{"],"[":[null,"["],":":[null,":"],",":[null,","],"}":[null,"}"]})");
}

TEST(LumContainerJson, ReadsEveryKind) {
    const LumContainer container = Read(
        R"( { "T" : "text", "I":-1, "U":4294967295, "B":true, "D":1.0, "C":{"N":1}, "L":[1,null,"x"] } )");
    EXPECT_EQ(*container.FindString("T"), "text");
    int32_t number = 0;
    EXPECT_TRUE(container.GetInt32("I", number));
    EXPECT_EQ(number, -1);
    uint32_t bits = 0;
    EXPECT_TRUE(container.GetInt32("U", bits));
    EXPECT_EQ(bits, 4294967295U);
    bool flag = false;
    EXPECT_TRUE(container.GetBool("B", flag));
    EXPECT_TRUE(flag);
    double real = 0;
    EXPECT_TRUE(container.GetDouble("D", real));
    EXPECT_EQ(real, 1.0);
    LumContainer inner;
    EXPECT_TRUE(container.GetContainer("C", inner));
    EXPECT_EQ(inner.ToJson(), R"({"N":1})");
    EXPECT_TRUE(container.IsList("L"));
    EXPECT_EQ(container.CountPositions("L"), 3U);
    EXPECT_EQ(container.CountValues("L"), 2U);
    EXPECT_FALSE(container.IsList("T"));
}

TEST(LumContainerJson, WhatComesInGoesOut) {
    const std::vector<std::pair<std::string_view, std::string_view>> cases{
        {"", "{}"},
        {"{}", "{}"},
        {" \t\r\n{ } \n", "{}"},
        {"\xEF\xBB\xBF{}", "{}"},
        {R"({"Z":1,"A":2,"M":3})", R"({"Z":1,"A":2,"M":3})"},
        {R"({"N":null})", "{}"},
        {R"({"N":null,"M":1})", R"({"M":1})"},
        {R"({"N":[]})", "{}"},
        {R"({"N":[null,null]})", "{}"},
        {R"({"N":[null,1,null]})", R"({"N":[null,1]})"},
        {R"({"N":[1]})", R"({"N":[1]})"},
        {R"({"N":[{},{"M":[2]}]})", R"({"N":[{},{"M":[2]}]})"},
        {R"({"N":[true,"x",-1,0.25,{"A":1}]})", R"({"N":[true,"x",-1,0.25,{"A":1}]})"},
        {R"({"":""})", R"({"":""})"},
        {R"({"\u0000\u00e9":"\ud83d\ude00\/"})", "{\"\\u0000\u00e9\":\"\U0001F600/\"}"},
        {R"({"N":-0})", R"({"N":0})"},
        {R"({"N":-2147483648,"M":2147483648})", R"({"N":-2147483648,"M":2147483648})"},
        {R"({"N":1e0})", R"({"N":1.0})"},
        {R"({"N":1E2})", R"({"N":100.0})"},
        {R"({"N":-0.0})", R"({"N":-0.0})"},
        {R"({"N":99999999999999999999.0})", R"({"N":1e+20})"},
        {R"({"N":1e-999})", R"({"N":0.0})"},
        {R"({"A":1,"B":2,"A":3})", R"({"A":3,"B":2})"},
        {R"({"A":[1,2,3],"A":[4]})", R"({"A":[4]})"},
        {R"({"A":[1,2,3],"A":4})", R"({"A":4})"},
        {R"({"A":1,"A":[null,4]})", R"({"A":[null,4]})"},
        {R"({"A":1,"B":2,"A":null})", R"({"B":2})"},
        {R"({"A":1,"B":2,"A":[]})", R"({"B":2})"},
        {R"({"A":{"B":1},"A":{"C":1}})", R"({"A":{"C":1}})"},
        {R"({"A":{"B":1,"B":null},"C":1})", R"({"A":{},"C":1})"},
    };
    for (const auto& [in, out] : cases) {
        EXPECT_EQ(Again(in), out) << in;
    }
}

TEST(LumContainerJson, SaysWhatIsWrongAndWhere) {
    const std::vector<std::pair<std::string_view, std::string_view>> cases{
        {" ", "This is not JSON, unexpected end of input; expected '[', '{', or a literal at byte 1"},
        {"{", "This is not JSON, unexpected end of input; expected string literal at byte 1"},
        {R"({"N")", "This is not JSON, unexpected end of input; expected ':' at byte 4"},
        {R"({"N":1)", "This is not JSON, unexpected end of input; expected '}' at byte 6"},
        {R"({"N":1,})", "This is not JSON, unexpected '}'; expected string literal at byte 8"},
        {R"({N:1})", "This is not JSON, invalid literal at byte 2"},
        {R"({'N':1})", "This is not JSON, invalid literal at byte 2"},
        {R"({"N":[1,]})", "This is not JSON, unexpected ']'; expected '[', '{', or a literal at byte 9"},
        {R"({"N":01})", "This is not JSON, unexpected number literal; expected '}' at byte 8"},
        {R"({"N":+1})", "This is not JSON, invalid literal at byte 6"},
        {R"({"N":NaN})", "This is not JSON, invalid literal at byte 6"},
        {R"({"N":"open)", "This is not JSON, invalid string: missing closing quote at byte 10"},
        {R"({}{})", "This is not JSON, unexpected '{'; expected end of input at byte 3"},
        {R"({} // no)", "This is not JSON, invalid literal at byte 4"},
        {"{\"N\":\"\xFF\"}", "This is not JSON, invalid string: ill-formed UTF-8 byte at byte 7"},
        {"{\"\xC3(\":1}", "This is not JSON, invalid string: ill-formed UTF-8 byte at byte 4"},
        {"{}\0"sv, "This is not JSON, a null character at byte 3"},
        {"{\"N\":\"\0\"}"sv, "This is not JSON, a null character at byte 7"},
        {"\0"sv, "This is not JSON, a null character at byte 1"},
        {"1", "The outermost value is not an object at byte 1"},
        {"-1", "The outermost value is not an object at byte 2"},
        {"1.5", "The outermost value is not an object at byte 3"},
        {"null", "The outermost value is not an object at byte 4"},
        {"true", "The outermost value is not an object at byte 4"},
        {R"("text")", "The outermost value is not an object at byte 6"},
        {"[]", "The outermost value is not an object at byte 1"},
        {R"([{"N":1}])", "The outermost value is not an object at byte 1"},
        {R"({"N":[[1]]})", "A list in a list at byte 7"},
        {R"({"N":[{"M":[[]]}]})", "A list in a list at byte 13"},
        {R"({"N":4294967296})", "An integer of more than 32 bits at byte 15"},
        {R"({"N":-2147483649 })", "An integer of more than 32 bits at byte 16"},
        {R"({"N":18446744073709551616})", "An integer of more than 32 bits at byte 25"},
        {R"({"N":-9223372036854775809})", "An integer of more than 32 bits at byte 25"},
        {R"({"N":[1,99999999999]})", "An integer of more than 32 bits at byte 19"},
        {R"({"N":1e999})", "A number too large for a double at byte 10"},
        {R"({"N":-1.0e400,"M":1})", "A number too large for a double at byte 13"},
    };
    for (const auto& [json, expected] : cases) {
        EXPECT_EQ(ErrorOf(json), expected) << json;
    }
    EXPECT_THAT(ErrorOf(R"({"N":"\ud800"})"), HasSubstr("surrogate"));
    EXPECT_THAT(ErrorOf("{\"N\":\"a\nb\"}"), HasSubstr("control character"));
    EXPECT_THAT(ErrorOf("{\"N\":\"" + std::string(100000, '\xFF')), HasSubstr("at byte 7"));
    EXPECT_THAT(ErrorOf("{\"N\":1" + std::string(100000, '0') + "e999}"), HasSubstr("too large"));
}

TEST(LumContainerJson, NestingEndsAtTheLimit) {
    const std::string deepest =
        Repeated(R"({"x":)", kLumMaxContainerDepth - 1) + "{}" + Repeated("}", kLumMaxContainerDepth - 1);
    EXPECT_EQ(Again(deepest), deepest);
    EXPECT_EQ(ErrorOf(R"({"x":)" + deepest + "}"), "Containers are nested too deep at byte 161");
    const std::string inLists =
        Repeated(R"({"x":[)", kLumMaxContainerDepth - 1) + "{}" + Repeated("]}", kLumMaxContainerDepth - 1);
    EXPECT_EQ(Again(inLists), inLists);
    EXPECT_EQ(ErrorOf(R"({"x":[)" + inLists + "]}"), "Containers are nested too deep at byte 193");
}

TEST(LumContainerJson, NestingWithoutEndIsRefusedAndNotFollowed) {
    EXPECT_THAT(ErrorOf(Repeated("[", 1000000)), HasSubstr("is not an object"));
    EXPECT_THAT(ErrorOf(Repeated(R"({"x":)", 1000000)), HasSubstr("too deep"));
    EXPECT_THAT(ErrorOf(R"({"x":)" + Repeated("[", 1000000)), HasSubstr("list in a list"));
}

TEST(LumContainerJson, ReadsAMillionNamesAndAMillionPositions) {
    constexpr uint32_t kMillion = 1000000;
    std::string json = "{";
    for (uint32_t i = 0; i < kMillion; ++i) {
        json += '"' + std::to_string(i) + "\":1,";
    }
    json += R"("0":null,"L":[)" + Repeated("null,", kMillion) + "7]}";
    const LumContainer container = Read(json);
    EXPECT_EQ(container.CountNames(), kMillion);
    EXPECT_FALSE(container.Contains("0"));
    EXPECT_TRUE(container.Contains("999999"));
    EXPECT_EQ(container.CountPositions("L"), kMillion + 1);
    EXPECT_EQ(Read(container.ToJson()), container);
}

TEST(LumContainerJson, ATextOfAMillionCharactersIsKept) {
    const std::string text = Repeated("\u00e9\"x\\", 250000);
    LumContainer container;
    container.SetString("T", LumString(std::string_view(text)));
    EXPECT_EQ(Read(container.ToJson()), container);
    EXPECT_EQ(nlohmann::json::parse(container.ToJson())["T"], text);
}

TEST(LumContainerJson, ReadingStartsTheWalkAnew) {
    LumContainer container = Read(R"({"A":1,"B":2})");
    LumString name;
    EXPECT_TRUE(container.GetNextName(name));
    LumString error;
    EXPECT_TRUE(container.FromJson(R"({"C":1,"D":2})", error));
    EXPECT_TRUE(container.GetNextName(name));
    EXPECT_EQ(name, "C");
}
