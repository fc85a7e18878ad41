#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "agent/request/RequestTarget.h"

namespace {

TEST(RequestTarget, HasAPathWithoutHostQueryAndPercentSigns) {
    EXPECT_EQ(PathOfTarget("/a/b?c=/d"), "/a/b");
    EXPECT_EQ(PathOfTarget("http://host:80/a%2Fb%2fc%C3%a9"), "/a/b/c\xC3\xA9");
    EXPECT_EQ(PathOfTarget("http://host"), "/");
    EXPECT_EQ(PathOfTarget("*"), "*");
    EXPECT_EQ(PathOfTarget(""), "");
}

TEST(RequestTarget, HasNoPathWhereAPercentSignStandsAlone) {
    for (const char* const target : {"/%", "/%4", "/%4g", "/%g4", "/%/4", "/%4:", "/%`4", "/a%"}) {
        EXPECT_EQ(PathOfTarget(target), std::nullopt) << target;
    }
}

TEST(RequestTarget, AsksForWhatItsQuerySwitchesOn) {
    EXPECT_TRUE(IsAskedFor("/a?explain=1", "explain"));
    EXPECT_TRUE(IsAskedFor("/a?x&y=2&explain=true&explain=0", "explain"));
    for (const char* const target : {"/a", "/a?", "/a?explain", "/a?explain=", "/a?explain=0&explain=1",
                                     "/a?explain=false", "/a?explains=1", "/explain=1"}) {
        EXPECT_FALSE(IsAskedFor(target, "explain")) << target;
    }
}

}  // namespace
