#include <string>

#include <gtest/gtest.h>

#include "host/core/LumStartup.h"

namespace {

std::string reported;

TEST(LumStartup, DoesNothingWithoutAnAgent) {
    LumStartupReport("checking the database");
    EXPECT_FALSE(LumStopRequested());
}

TEST(LumStartup, PassesOnWhatIsReportedAndAsked) {
    LumStartupSetHost({[](const LumString& phrase) { reported = phrase.View(); }, [] { return true; }});
    LumStartupReport("checking the database, 40 %");
    EXPECT_EQ(reported, "checking the database, 40 %");
    EXPECT_TRUE(LumStopRequested());
    LumStartupSetHost({});
    EXPECT_FALSE(LumStopRequested());
}

}  // namespace
