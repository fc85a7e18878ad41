#include <gtest/gtest.h>

#include "host/text/LumMd5.h"

TEST(LumMd5, GivesTheDigestsOfTheStandardsTestSuite) {
    EXPECT_EQ(MD5HashHex(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(MD5HashHex("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(MD5HashHex("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(MD5HashHex("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(MD5HashHex("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(MD5HashHex("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(LumMd5, TakesEveryByteNullBytesIncluded) {
    EXPECT_EQ(MD5HashHex(LumString(std::string_view("\0", 1))), "93b885adfe0da089cdf634904fd59f71");
    EXPECT_NE(MD5HashHex(LumString(std::string_view("a\0b", 3))), MD5HashHex("a"));
}
