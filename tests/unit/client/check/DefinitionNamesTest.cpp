#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/check/DefinitionNames.h"

namespace {

using testing::HasSubstr;

TEST(DefinitionNames, RefusesWhatCannotNameATable) {
    EXPECT_EQ(FaultOfModelName("Az_09$\xC3\xBC"), "");
    EXPECT_EQ(FaultOfModelName(std::string(255, 'a')), "");
    EXPECT_EQ(FaultOfModelName(std::string(256, 'a')), "the name has 256 bytes, and may have 255");
    EXPECT_EQ(FaultOfModelName("temp"), "the name 'temp' is taken by a table of the agent");
    for (const char* const name : {"a b", "a/b", "a@b", "a[b", "a`b", "a{b", "a-b", "a\n"}) {
        EXPECT_THAT(FaultOfModelName(name), HasSubstr("may hold letters, digits, _ and $ only")) << name;
    }
    EXPECT_EQ(FaultOfParameterName("Temp"), "");
    EXPECT_EQ(FaultOfParameterName("eventcount"),
              "the name 'eventcount' is that of a field that every event has");
}

}  // namespace
