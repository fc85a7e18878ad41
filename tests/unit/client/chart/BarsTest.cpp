#include <gtest/gtest.h>

#include "client/chart/Bars.h"

namespace {

TEST(Bars, AreAsLongAsTheirShareInEighths) {
    EXPECT_EQ(HorizontalBar(10, 10, 2, true), "██");
    EXPECT_EQ(HorizontalBar(5, 10, 2, true), "█");
    EXPECT_EQ(HorizontalBar(10, 16, 1, true), "▋");
    EXPECT_EQ(HorizontalBar(0, 10, 2, true), "");
    EXPECT_EQ(HorizontalBar(1, 1000000, 10, true), "▏") << "a few events are not none";
    EXPECT_EQ(HorizontalBar(0, 0, 10, true), "");
    EXPECT_EQ(HorizontalBar(5, 10, 4, false), "##");
}

TEST(Bars, StandSideBySideInASparkline) {
    EXPECT_EQ(Sparkline({0, 1, 4, 8}, 8, true), " ▁▄█");
    EXPECT_EQ(Sparkline({0, 8}, 8, false), " #");
}

TEST(Bars, AreAddedUpWhereTheyAreTooMany) {
    EXPECT_EQ(Condensed({1, 2, 3, 4, 5}, 2), (std::vector<uint64_t>{6, 9}));
    EXPECT_EQ(Condensed({1, 2}, 80), (std::vector<uint64_t>{1, 2}));
    EXPECT_TRUE(Condensed({}, 80).empty());
}

}  // namespace
