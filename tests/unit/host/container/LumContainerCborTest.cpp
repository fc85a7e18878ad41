#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/container/LumContainer.h"

namespace {

using namespace std::string_view_literals;

constexpr std::string_view kTag = "\xD9\xD9\xF7"sv;

std::string Tagged(std::string_view item) {
    return std::string(kTag).append(item);
}

/// The bytes after the tag as hexadecimal digits.
std::string Hex(const LumContainer& container) {
    std::string digits;
    for (const char byte : container.ToCbor().substr(kTag.size())) {
        constexpr std::string_view kDigits = "0123456789abcdef";
        digits += kDigits[static_cast<unsigned char>(byte) >> 4U];
        digits += kDigits[static_cast<unsigned char>(byte) & 0xFU];
    }
    return digits;
}

std::string HexOfInt(int32_t value) {
    LumContainer container;
    container.SetInt32("", value);
    return Hex(container).substr(4);
}

LumContainer Read(std::string_view bytes) {
    LumContainer container;
    LumString error;
    EXPECT_TRUE(container.FromCbor(bytes, error)) << error.GetString();
    return container;
}

/// What FromCbor says of bytes that it refuses; also sees to it that nothing else happens.
std::string ErrorOf(std::string_view bytes) {
    LumContainer container;
    container.SetInt32("Kept", 1);
    const LumContainer before = container;
    LumString error;
    EXPECT_FALSE(container.FromCbor(bytes, error));
    EXPECT_EQ(container, before);
    return std::string(error.View());
}

/// A map in a map and so on, `depth` of them, after the tag.
std::string NestedMaps(uint32_t depth) {
    std::string bytes(kTag);
    for (uint32_t i = 1; i < depth; ++i) {
        bytes += "\xA1\x61x";
    }
    return bytes + '\xA0';
}

}  // namespace

TEST(LumContainerCbor, WritesTheBytesOfTheFormat) {
    LumContainer definition;
    definition.SetString("ModelName", "Logon");
    LumContainer container;
    container.SetContainer("ModelDef", definition);
    container.SetInt32("EventDate", 1700000000, 0);
    container.SetInt32("EventDate", 1700000060, 1);
    container.SetInt32("Offset", -3600);
    container.SetString("C_User", "Zo\u00eb", 1);
    container.SetBool("Remote", true);
    container.SetBool("Local", false);
    container.SetDouble("Load", 0.5);
    EXPECT_EQ(container.ToCbor(), Tagged("\xA7"
                                         "\x68ModelDef\xA1\x69ModelName\x65Logon"
                                         "\x69"
                                         "EventDate\x82\x1A\x65\x53\xF1\x00\x1A\x65\x53\xF1\x3C"
                                         "\x66Offset\x39\x0E\x0F"
                                         "\x66"
                                         "C_User\x82\xF6\x64Zo\xC3\xAB"
                                         "\x66Remote\xF5"
                                         "\x65Local\xF4"
                                         "\x64Load\xFB\x3F\xE0\x00\x00\x00\x00\x00\x00"sv));
}

TEST(LumContainerCbor, AnEmptyContainerIsAnEmptyMap) {
    EXPECT_EQ(LumContainer().ToCbor(), Tagged("\xA0"));
    EXPECT_EQ(Read(Tagged("\xA0")), LumContainer());
}

TEST(LumContainerCbor, IntegersTakeTheirShortestForm) {
    EXPECT_EQ(HexOfInt(0), "00");
    EXPECT_EQ(HexOfInt(23), "17");
    EXPECT_EQ(HexOfInt(24), "1818");
    EXPECT_EQ(HexOfInt(255), "18ff");
    EXPECT_EQ(HexOfInt(256), "190100");
    EXPECT_EQ(HexOfInt(65535), "19ffff");
    EXPECT_EQ(HexOfInt(65536), "1a00010000");
    EXPECT_EQ(HexOfInt(std::numeric_limits<int32_t>::max()), "1a7fffffff");
    EXPECT_EQ(HexOfInt(-1), "20");
    EXPECT_EQ(HexOfInt(-24), "37");
    EXPECT_EQ(HexOfInt(-25), "3818");
    EXPECT_EQ(HexOfInt(-257), "390100");
    EXPECT_EQ(HexOfInt(std::numeric_limits<int32_t>::min()), "3a7fffffff");
}

TEST(LumContainerCbor, AnIntegerKeepsTheSignOfTheSetter) {
    LumContainer container;
    container.SetInt32("", std::numeric_limits<uint32_t>::max());
    EXPECT_EQ(Hex(container), "a1601affffffff");
    const LumContainer read = Read(container.ToCbor());
    uint32_t value = 0;
    EXPECT_TRUE(read.GetInt32("", value));
    EXPECT_EQ(value, std::numeric_limits<uint32_t>::max());
    EXPECT_EQ(read.ToCbor(), container.ToCbor());
}

TEST(LumContainerCbor, LengthsTakeTheirShortestFormToo) {
    for (const uint32_t length : {23U, 24U, 255U, 256U, 511U, 512U, 513U, 1700U, 65535U, 65536U, 200000U}) {
        const std::string text(length, 'x');
        LumContainer container;
        container.SetString("T", LumString(std::string_view(text)), 0);
        container.SetString("T", "behind", 1);
        const std::string bytes = container.ToCbor();
        const std::string head =
            length < 24    ? std::string(1, static_cast<char>(0x60 + length))
            : length < 256 ? std::string("\x78") + static_cast<char>(length)
            : length < 65536
                ? std::string("\x79") + static_cast<char>(length >> 8U) + static_cast<char>(length & 0xFFU)
                : std::string("\x7A\x00", 2) + static_cast<char>(length >> 16U) +
                      static_cast<char>((length >> 8U) & 0xFFU) + static_cast<char>(length & 0xFFU);
        EXPECT_EQ(bytes, Tagged("\xA1\x61T\x82" + head + text +
                                "\x66"
                                "behind"));
        EXPECT_EQ(Read(bytes), container);
    }
    LumContainer list;
    for (uint32_t i = 0; i < 300; ++i) {
        list.SetInt32("N", 0, i);
        EXPECT_EQ(Read(list.ToCbor()), list);
    }
    EXPECT_EQ(Hex(list).substr(0, 12), "a1614e99012c");
}

TEST(LumContainerCbor, ABrokenTextIsWrittenWithReplacementCharacters) {
    LumContainer container;
    container.SetString("Na\xFFme", LumString("M\xFCller \xC3\xBC"));
    container.SetString("L", LumString(std::string(600, '\xFF')), 1);
    const std::string head =
        Tagged("\xA2\x67Na\xEF\xBF\xBDme\x6BM\xEF\xBF\xBDller \xC3\xBC\x61L\x82\xF6\x79\x07\x08\xEF\xBF\xBD");
    EXPECT_EQ(container.ToCbor().substr(0, head.size()), head);
    const LumContainer read = Read(container.ToCbor());
    EXPECT_EQ(*read.FindString("Na\ufffdme"), "M\ufffdller \u00fc");
}

TEST(LumContainerCbor, EveryKindSurvivesTheRoundTrip) {
    LumContainer deep;
    deep.SetContainer("Empty", LumContainer());
    deep.SetContainer("List", LumContainer(), 2);
    deep.SetString("List", "after", 3);
    LumContainer container;
    container.SetContainer("Deep", deep);
    container.SetString("Null byte", LumString(std::string_view("a\0b", 3)), 1);
    container.SetString("Empty text", "");
    container.SetString("", "no name");
    for (const double real : {0.0, 1.5, -1e300, 5e-324, std::numeric_limits<double>::infinity()}) {
        container.SetDouble("Reals", real, container.CountPositions("Reals"));
    }
    container.SetDouble("Reals", std::nan(""), 9);
    container.SetBool("Flags", true, 0);
    container.SetBool("Flags", false, 1);
    container.SetInt32("One in a list", 1, 0);
    const LumContainer read = Read(container.ToCbor());
    EXPECT_EQ(read, container);
    EXPECT_EQ(read.ToCbor(), container.ToCbor());
    EXPECT_TRUE(read.IsList("One in a list"));
}

TEST(LumContainerCbor, NegativeZeroKeepsItsSign) {
    LumContainer container;
    container.SetDouble("", -0.0);
    double value = 1;
    EXPECT_TRUE(Read(container.ToCbor()).GetDouble("", value));
    EXPECT_TRUE(std::signbit(value));
}

TEST(LumContainerCbor, OtherReadersUnderstandIt) {
    LumContainer container;
    container.SetInt32("N", -5, 1);
    container.SetString("T", "text");
    container.SetDouble("D", 0.1);
    const std::string bytes = container.ToCbor();
    const auto read =
        nlohmann::ordered_json::from_cbor(bytes, true, true, nlohmann::json::cbor_tag_handler_t::ignore);
    EXPECT_EQ(read.dump(), R"({"N":[null,-5],"T":"text","D":0.1})");
}

TEST(LumContainerCbor, ReadingReplacesWhatWasThere) {
    LumContainer container;
    container.SetInt32("Old", 1);
    container.SetInt32("Older", 1);
    LumString name;
    EXPECT_TRUE(container.GetNextName(name));
    LumString error("untouched");
    EXPECT_TRUE(container.FromCbor(Tagged("\xA1\x61N\x01"), error));
    EXPECT_EQ(error, "untouched");
    EXPECT_TRUE(container.GetNextName(name));
    EXPECT_EQ(name, "N");
    EXPECT_EQ(container.CountNames(), 1U);
}

TEST(LumContainerCbor, WiderFormsThanNeededAreRead) {
    EXPECT_EQ(Read(Tagged("\xB8\x01\x78\x01N\x1B\x00\x00\x00\x00\x00\x00\x00\x05"sv)).ToJson(), R"({"N":5})");
    EXPECT_EQ(Read(Tagged("\xB9\x00\x01\x79\x00\x01N\x99\x00\x01\x3A\x00\x00\x00\x04"sv)).ToJson(),
              R"({"N":[-5]})");
}

TEST(LumContainerCbor, OfANameGivenTwiceTheLastValueCounts) {
    EXPECT_EQ(Read(Tagged("\xA3\x61"
                          "A\x83\x01\x02\x03\x61"
                          "B\x01\x61"
                          "A\x81\x09"sv))
                  .ToJson(),
              R"({"A":[9],"B":1})");
    EXPECT_EQ(Read(Tagged("\xA3\x61"
                          "A\x01\x61"
                          "B\x01\x61"
                          "A\x80"sv))
                  .ToJson(),
              R"({"B":1})");
}

TEST(LumContainerCbor, AListOfNothingIsAnAbsentName) {
    EXPECT_EQ(Read(Tagged("\xA2\x61N\x80\x61M\x82\xF6\xF6"sv)), LumContainer());
    EXPECT_EQ(Read(Tagged("\xA1\x61N\x83\x01\xF6\xF6"sv)).CountPositions("N"), 1U);
}

TEST(LumContainerCbor, SaysWhatIsWrongAndWhere) {
    const std::vector<std::pair<std::string, std::string_view>> cases{
        {"", "This is not a container file, the tag 55799 is missing at byte 0"},
        {"\xD9\xD9", "This is not a container file, the tag 55799 is missing at byte 0"},
        {"\xA0", "This is not a container file, the tag 55799 is missing at byte 0"},
        {"{\"a\":1}", "This is not a container file, the tag 55799 is missing at byte 0"},
        {Tagged(""), "The container ends too early at byte 3"},
        {Tagged("\x81\x01"), "The outermost value is not a container at byte 3"},
        {Tagged("\x01"), "The outermost value is not a container at byte 3"},
        {Tagged("\xD9\xD9\xF7\xA0"), "The outermost value is not a container at byte 3"},
        {Tagged("\xA0\x00"sv), "There are bytes after the container at byte 4"},
        {Tagged("\xA1"), "The container ends too early at byte 4"},
        {Tagged("\xA1\x61N"), "The container ends too early at byte 6"},
        {Tagged("\xA1\x65Na"), "The container ends too early at byte 7"},
        {Tagged("\xA1\x61N\x19\x01"), "The container ends too early at byte 8"},
        {Tagged("\xA1\x61N\x63xy"), "The container ends too early at byte 9"},
        {Tagged("\xA1\x61N\x82\x01"), "The container ends too early at byte 8"},
        {Tagged("\xA1\x61N\xA1"), "The container ends too early at byte 7"},
        {Tagged("\xA1\x61N\xFB\x3F"), "The container ends too early at byte 8"},
        {Tagged("\xA1\x01\x01"), "A name that is not text at byte 4"},
        {Tagged("\xA1\x41N\x01"), "A name that is not text at byte 4"},
        {Tagged("\xA1\x61\xFF\x01"), "A text that is not UTF-8 at byte 4"},
        {Tagged("\xA1\x61N\x62\xC3("), "A text that is not UTF-8 at byte 6"},
        {Tagged("\xA1\x61N\x81\x80"), "A list in a list at byte 7"},
        {Tagged("\xA1\x61N\xF6"), "A value of a kind that containers do not have at byte 6"},
        {Tagged("\xA1\x61N\xF7"), "A value of a kind that containers do not have at byte 6"},
        {Tagged("\xA1\x61N\x41x"), "A value of a kind that containers do not have at byte 6"},
        {Tagged("\xA1\x61N\xF9\x3C\x00"sv), "A value of a kind that containers do not have at byte 6"},
        {Tagged("\xA1\x61N\xFA\x3F\x80\x00\x00"sv),
         "A value of a kind that containers do not have at byte 6"},
        {Tagged("\xA1\x61N\xC1\x01"), "A value of a kind that containers do not have at byte 6"},
        {Tagged("\xA1\x61N\xF8\xF5"), "A value of a kind that containers do not have at byte 6"},
        {Tagged("\xA1\x61N\x1B\x00\x00\x00\x01\x00\x00\x00\x00"sv),
         "An integer of more than 32 bits at byte 6"},
        {Tagged("\xA1\x61N\x3A\x80\x00\x00\x00"sv), "An integer of more than 32 bits at byte 6"},
        {Tagged("\xA1\x61N\x3B\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"),
         "An integer of more than 32 bits at byte 6"},
        {Tagged("\xBF\x61N\x01\xFF"), "A value of no definite length at byte 3"},
        {Tagged("\xA1\x7F\x61N\xFF\x01"), "A value of no definite length at byte 4"},
        {Tagged("\xA1\x61N\x9F\x01\xFF"), "A value of no definite length at byte 6"},
        {Tagged("\xA1\x61N\x1C"), "A value of no definite length at byte 6"},
        {Tagged("\xA1\x61N\xFF"), "A value of no definite length at byte 6"},
    };
    for (const auto& [bytes, expected] : cases) {
        EXPECT_EQ(ErrorOf(bytes), expected) << testing::PrintToString(bytes);
    }
}

TEST(LumContainerCbor, ClaimedLengthsTakeNoMemory) {
    EXPECT_EQ(ErrorOf(Tagged("\xBB\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF")),
              "The container ends too early at byte 12");
    EXPECT_EQ(ErrorOf(Tagged("\xA1\x7B\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF")),
              "The container ends too early at byte 13");
    EXPECT_EQ(ErrorOf(Tagged("\xA1\x61N\x9B\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF")),
              "A list of too many values at byte 6");
    EXPECT_EQ(ErrorOf(Tagged("\xA1\x61N\x9A\x01\x00\x00\x01"sv)), "A list of too many values at byte 6");
    EXPECT_EQ(ErrorOf(Tagged("\xA1\x61N\x9A\x01\x00\x00\x00"sv)), "The container ends too early at byte 11");
}

TEST(LumContainerCbor, NestingEndsAtTheLimit) {
    EXPECT_EQ(Read(NestedMaps(kLumMaxContainerDepth)).CountNames(), 1U);
    EXPECT_EQ(ErrorOf(NestedMaps(kLumMaxContainerDepth + 1)), "Containers are nested too deep at byte 99");
    std::string inLists(kTag);
    for (uint32_t i = 0; i < kLumMaxContainerDepth; ++i) {
        inLists += "\xA1\x61x\x81";
    }
    EXPECT_EQ(ErrorOf(inLists + '\xA0'), "Containers are nested too deep at byte 131");
}

TEST(LumContainerCbor, NestingWithoutEndIsRefusedAndNotFollowed) {
    for (const std::string_view part : {"\xA1\x61x"sv, "\xA1\x61x\x81"sv, "\xA1\x7F"sv, "\xA1\x61x\x5F"sv,
                                        "\xA1\x61x\xC1"sv, "\x7F"sv, "\x9F"sv}) {
        std::string bytes(kTag);
        while (bytes.size() < 4000000) {
            bytes += part;
        }
        EXPECT_NE(ErrorOf(bytes), "");
    }
}

TEST(LumContainerCbor, EveryShortenedFileIsRefused) {
    LumContainer inner;
    inner.SetDouble("D", 1.5, 1);
    LumContainer container;
    container.SetString("T", "text");
    container.SetInt32("N", 100000, 2);
    container.SetContainer("C", inner, 0);
    const std::string bytes = container.ToCbor();
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        EXPECT_NE(ErrorOf(bytes.substr(0, length)), "");
    }
    EXPECT_EQ(Read(bytes), container);
}
