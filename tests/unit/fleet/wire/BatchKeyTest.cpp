#include <gtest/gtest.h>

#include "fleet/wire/BatchKey.h"

namespace {

const std::string kDigest(64, 'a');

TEST(BatchKey, IsDeviceColonDigest) {
    EXPECT_EQ(KeyText({"alpha", kDigest}), "alpha:" + kDigest);
}

TEST(BatchKey, ComesBackFromItsText) {
    BatchKey key;
    ASSERT_TRUE(ParseKey("alpha-1_B:" + kDigest, key));
    EXPECT_EQ(key, (BatchKey{"alpha-1_B", kDigest}));
}

TEST(BatchKey, IsNoneWithoutADeviceOrADigest) {
    BatchKey key{"before", "before"};
    for (const std::string& text :
         {std::string(), kDigest, ":" + kDigest, std::string("alpha:"), "alpha:" + kDigest + "a",
          "alpha:" + std::string(64, 'A'), "alpha:" + std::string(64, 'g'), "a.b:" + kDigest,
          "a b:" + kDigest, "a:b:" + kDigest, std::string(65, 'a') + ":" + kDigest}) {
        EXPECT_FALSE(ParseKey(text, key)) << text;
    }
    EXPECT_EQ(key, (BatchKey{"before", "before"}));
}

TEST(BatchKey, TakesDeviceNamesThatAreOneTokenOfASubject) {
    EXPECT_TRUE(IsDeviceName("0123456789abcdef0123456789abcdef"));
    EXPECT_TRUE(IsDeviceName(std::string(64, 'Z')));
    for (const char* const name :
         {"", "a.b", "*", ">", "a b", "a/b", "a'b", "a@b", "a[b", "a`b", "a{b", "\xC3\xA4"}) {
        EXPECT_FALSE(IsDeviceName(name)) << name;
    }
    EXPECT_FALSE(IsDeviceName(std::string(65, 'Z')));
}

}  // namespace
