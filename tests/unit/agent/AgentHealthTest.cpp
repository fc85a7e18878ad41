#include <cstdint>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/AgentHealth.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(AgentHealth, IsGoodWithEverythingInPlace) {
    EXPECT_THAT(AgentHealth("/", 0, {}).GetReasons(), IsEmpty());
}

TEST(AgentHealth, NamesTheModulesThatAreMissingBeforeAllElse) {
    constexpr uint32_t more = std::numeric_limits<uint32_t>::max();
    const std::vector<LumString> reasons = AgentHealth("/", more, {"No module."}).GetReasons();
    ASSERT_EQ(reasons.size(), 2U);
    EXPECT_EQ(reasons[0], "No module.");
    EXPECT_THAT(reasons[1].GetString(),
                HasSubstr(" MB are free below the data directory /, less than the 4294967295 of "));
}

TEST(AgentHealth, SaysThatTheDataDirectoryHasGone) {
    EXPECT_THAT(AgentHealth("/nowhere/data", 0, {}).GetReasons(),
                ElementsAre(LumString(
                    "The data directory /nowhere/data cannot be looked at: No such file or directory.")));
}

}  // namespace
