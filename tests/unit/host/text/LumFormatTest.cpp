#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "host/text/LumFormat.h"
#include "host/text/LumString.h"

namespace {

template <class... Args>
std::string Format(LumFormatFor<Args...> format, const Args&... args) {
    LumString text = "old";
    text.Printf(format, args...);
    return std::string(text.View());
}

}  // namespace

TEST(LumFormat, WritesEveryLetter) {
    EXPECT_EQ(Format("%S|%s|%d|%u|%ld|%f|%%", LumString("a"), "b", -1, 2U, int64_t{-3}, 2.5),
              "a|b|-1|2|-3|2.500000|%");
    EXPECT_EQ(Format(""), "");
    EXPECT_EQ(Format("plain"), "plain");
    EXPECT_EQ(Format("%%S"), "%S");
}

TEST(LumFormat, WritesTheEndsOfEachRange) {
    EXPECT_EQ(Format("%d %d", std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()),
              "-2147483648 2147483647");
    EXPECT_EQ(Format("%u %u", 0U, std::numeric_limits<uint32_t>::max()), "0 4294967295");
    EXPECT_EQ(Format("%ld %ld", std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max()),
              "-9223372036854775808 9223372036854775807");
    EXPECT_EQ(Format("%d %u", int16_t{-5}, uint8_t{200}), "-5 200");
}

TEST(LumFormat, TakesTextsAsTheyAre) {
    EXPECT_EQ(Format("<%S>", LumString(std::string_view("a\0%d", 4))), std::string("<a\0%d>", 6));
    EXPECT_EQ(Format("<%S>", std::string_view("view")), "<view>");
    const char* const none = nullptr;
    EXPECT_EQ(Format("<%s>", none), "<>");
}

TEST(LumFormat, WritesDoublesWithSixDecimals) {
    EXPECT_EQ(Format("%f", 0.0), "0.000000");
    EXPECT_EQ(Format("%f", -0.0), "-0.000000");
    EXPECT_EQ(Format("%f", 0.0000005), "0.000000") << "the nearest double lies below the half";
    EXPECT_EQ(Format("%f", 1e22), "10000000000000000000000.000000");
    EXPECT_EQ(Format("%f", 1.5F), "1.500000");
    EXPECT_EQ(Format("%f", std::numeric_limits<double>::max()).size(), 309U + 7);
    EXPECT_EQ(Format("%f", std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(Format("%f", -std::numeric_limits<double>::infinity()), "-inf");
    EXPECT_EQ(Format("%f", std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(LumFormat, WritesDoublesAsPrintfDoes) {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> mantissa(-1.0, 1.0);
    std::uniform_int_distribution<int> exponent(-40, 1020);
    for (int i = 0; i < 2000; ++i) {
        const double value = std::ldexp(mantissa(random), exponent(random));
        char expected[400];
        std::snprintf(expected, sizeof expected, "%f", value);
        ASSERT_EQ(Format("%f", value), expected);
    }
}
