#include <sstream>

#include <gtest/gtest.h>

#include "client/text/ProgressBar.h"

namespace {

TEST(ProgressBar, ShowsItsShareAndTheCount) {
    EXPECT_EQ(ProgressBar::Text(0, 100, 0).find("  0 %"), ProgressBar::Text(0, 100, 0).find(" %") - 3);
    const std::string half = ProgressBar::Text(50, 100, 1234);
    EXPECT_NE(half.find(" 50 %  1234 events"), std::string::npos) << half;
    const std::string whole = ProgressBar::Text(100, 100, 1);
    EXPECT_EQ(whole.find('.'), std::string::npos) << whole;
    EXPECT_NE(whole.find("100 %"), std::string::npos) << whole;
}

TEST(ProgressBar, ShowsTheCountAloneWithoutATotal) {
    EXPECT_EQ(ProgressBar::Text(50, 0, 7), "7 events");
}

TEST(ProgressBar, DrawsNothingWhereItIsNotEnabled) {
    std::ostringstream out;
    {
        ProgressBar bar(out, false);
        bar.Update(5, 10, 1);
    }
    EXPECT_EQ(out.str(), "");
}

TEST(ProgressBar, DrawsAtOnceAndThenNowAndThenAndTakesItselfOff) {
    std::ostringstream out;
    ProgressBar bar(out, true);
    bar.Update(1, 10, 1);
    const std::string drawn = out.str();
    EXPECT_NE(drawn.find("1 events"), std::string::npos);
    bar.Erase();
    EXPECT_GT(out.str().size(), drawn.size());
    const std::string erased = out.str();
    bar.Erase();
    EXPECT_EQ(out.str(), erased) << "there is nothing to take off any more";
}

}  // namespace
