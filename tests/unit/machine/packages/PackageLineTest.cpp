#include <gtest/gtest.h>

#include "machine/packages/PackageLine.h"
#include "support/TimeZone.h"

namespace {

bool IsTaken(std::string_view line) {
    PackageLine parts;
    return ParsePackageLine(line, parts);
}

TEST(PackageLine, TellsThePartsOfAStep) {
    PackageLine parts;
    ASSERT_TRUE(ParsePackageLine("2026-11-21 16:05:27 upgrade libfoo2:amd64 1.0-1 1.0-2", parts));
    EXPECT_EQ(parts.action, "upgrade");
    EXPECT_EQ(parts.package, "libfoo2");
    EXPECT_EQ(parts.architecture, "amd64");
    EXPECT_EQ(parts.oldVersion, "1.0-1");
    EXPECT_EQ(parts.version, "1.0-2");
}

TEST(PackageLine, APackageMayHaveNoArchitecture) {
    PackageLine parts;
    ASSERT_TRUE(ParsePackageLine("2026-11-21 16:05:27 install foo <none> 1.0", parts));
    EXPECT_EQ(parts.package, "foo");
    EXPECT_EQ(parts.architecture, "");
}

TEST(PackageLine, OnlyTheFourStepsAreTaken) {
    for (const char* const action : {"install", "upgrade", "remove", "purge"}) {
        EXPECT_TRUE(IsTaken(std::string("2026-11-21 16:05:27 ") + action + " foo:all 1 2")) << action;
    }
    EXPECT_FALSE(IsTaken("2026-11-21 16:05:27 configure foo:all 1 <none>"));
    EXPECT_FALSE(IsTaken("2026-11-21 16:05:27 status unpacked foo:all 1"));
    EXPECT_FALSE(IsTaken("2026-11-21 16:05:27 startup archives unpack"));
}

TEST(PackageLine, AnotherFormIsNotTaken) {
    EXPECT_FALSE(IsTaken(""));
    EXPECT_FALSE(IsTaken("install foo:all 1 2"));
    EXPECT_FALSE(IsTaken("2026-11-21 16:05:27 install foo:all 1"));
    EXPECT_FALSE(IsTaken("2026-11-21 16:05:27 install foo:all 1 "));
    EXPECT_FALSE(IsTaken("2026-11-21 16:05:27 install foo:all 1 2 3"));
    EXPECT_FALSE(IsTaken("2026-11-21 16:05:27 install  1 2"));
    EXPECT_FALSE(IsTaken("2026-11-21T16:05:27 install foo:all 1 2"));
    EXPECT_FALSE(IsTaken("2026-1-21 16:05:27 install foo:all 1 2"));
}

TEST(PackageLine, ItsTimeIsLocal) {
    const TimeZone zone("Europe/Berlin");
    EXPECT_EQ(TimeOfLine("2026-07-01 12:00:00 install"), 1782900000);
    EXPECT_EQ(TimeOfLine("2026-12-01 12:00:00"), 1796122800);
    for (const char* const none :
         {"2026-00-01 12:00:00", "2026-13-01 12:00:00", "2026-12-00 12:00:00", "2026-12-32 12:00:00",
          "2026-12-01 24:00:00", "2026-12-01 12:60:00", "2026-12-01 12:00:61", "yesterday"}) {
        EXPECT_EQ(TimeOfLine(none), -1) << none;
    }
}

}  // namespace
