#include <string>

#include <gtest/gtest.h>

#include "filestore/FileNames.h"

namespace {

constexpr std::time_t kMoment = 1795223425;  // 2026-11-21T01:10:25Z

TEST(FileNamesSafe, KeepsLettersDigitsAndThreeSigns) {
    EXPECT_EQ(SafeName("Az09._-", 100), "Az09._-");
}

TEST(FileNamesSafe, TurnsEveryOtherByteIntoALine) {
    EXPECT_EQ(SafeName("a/b c\n\xC3\xA9$", 100), "a_b_c____");
}

TEST(FileNamesSafe, NeitherHidesNorClimbsNorLooksLikeAnOption) {
    EXPECT_EQ(SafeName(".hidden", 100), "_hidden");
    EXPECT_EQ(SafeName("../../etc/passwd", 100), "_._.._etc_passwd");
    EXPECT_EQ(SafeName("-rf", 100), "_rf");
}

TEST(FileNamesSafe, IsCutAndNeverEmpty) {
    EXPECT_EQ(SafeName("abcdef", 3), "abc");
    EXPECT_EQ(SafeName("", 3), "file");
}

TEST(FileNamesDerived, HasTimeNumberAndLabel) {
    EXPECT_EQ(DerivedName(kMoment, 17, "Events"), "20261121T011025Z-17-Events.cbor");
    EXPECT_EQ(DerivedName(kMoment, 17, "a/b"), "20261121T011025Z-17-a_b.cbor");
    EXPECT_EQ(DerivedName(kMoment, 17, std::string(200, 'x')),
              "20261121T011025Z-17-" + std::string(kMaxLabelLength, 'x') + ".cbor");
}

TEST(FileNamesDerived, IsTakenApart) {
    DerivedNameParts parts;
    ASSERT_TRUE(ParseDerivedName(DerivedName(kMoment, 17, "A-B"), parts));
    EXPECT_EQ(parts.receivedAt, "2026-11-21T01:10:25Z");
    EXPECT_EQ(parts.number, 17U);
    EXPECT_EQ(parts.label, "A-B");
}

TEST(FileNamesDerived, IsToldFromOthers) {
    DerivedNameParts parts;
    parts.label = "before";
    for (const char* const name :
         {"", ".cbor", "20261121T011025Z.cbor", "20261121T011025Z-17-A.json", "20261121T011025Z-17-.cbor",
          "20261121T011025Z-17.cbor", "20261121T011025Z--A.cbor", "20261121T011025Z-x-A.cbor",
          "2026112xT011025Z-17-A.cbor", "20261121 011025Z-17-A.cbor", "20261121T011025Z_17-A.cbor",
          "20261121T011025Z-99999999999999999999-A.cbor", "a-longer-name.cbor", "20261121T011025.cbor",
          "elevenbytes.cbor"}) {
        EXPECT_FALSE(ParseDerivedName(name, parts)) << name;
    }
    EXPECT_EQ(parts.label, "before");
}

TEST(FileNamesDescription, IsTheStemWithItsOwnExtension) {
    EXPECT_EQ(DescriptionName("a.b.cbor"), "a.b.json");
    EXPECT_EQ(DescriptionName("plain"), "plain.json");
    EXPECT_TRUE(IsDescriptionName("a.json"));
    EXPECT_FALSE(IsDescriptionName("a.cbor"));
}

TEST(FileNamesTime, IsIso8601) {
    EXPECT_EQ(UtcTimeText(kMoment), "2026-11-21T01:10:25Z");
    EXPECT_EQ(UtcTimeText(0), "1970-01-01T00:00:00Z");
}

}  // namespace
