#include <gtest/gtest.h>

#include "client/text/Suggestion.h"

namespace {

TEST(Suggestion, FindsTheNameThatWasMeant) {
    const std::vector<std::string> known{"events", "export", "create", "models", "model"};
    EXPECT_EQ(NearestName("evnets", known), "events") << "two letters swapped";
    EXPECT_EQ(NearestName("modles", known), "models");
    EXPECT_EQ(NearestName("EVENT", known), "events") << "letter case does not count";
    EXPECT_EQ(NearestName("creat", known), "create");
}

TEST(Suggestion, KeepsQuietWhereNothingIsNear) {
    EXPECT_EQ(NearestName("quux", {"events", "export"}), "");
    EXPECT_EQ(NearestName("", {"a", "events"}), "");
    EXPECT_EQ(NearestName("x", {"a", "b"}), "") << "a single letter is like any other";
    EXPECT_EQ(NearestName(std::string(1000, 'a'), {"a"}), "");
    EXPECT_EQ(NearestName("a", {}), "");
    EXPECT_EQ(NearestName(std::string(64, 'a'), {std::string(65, 'a')}), "") << "too long to compare";
}

TEST(Suggestion, AsksInASentence) {
    EXPECT_EQ(DidYouMean("Logan", {"Logon", "DiskUsage"}), "; did you mean 'Logon'?");
    EXPECT_EQ(DidYouMean("Something", {"Logon"}), "");
}

}  // namespace
