#include <gtest/gtest.h>

#include "fleet/collect/CollectState.h"

namespace {

TEST(CollectState, IsWellOnceBothSidesAreThere) {
    CollectState state;
    EXPECT_EQ(CollectHealth(state).reasons.size(), 2U);
    state.brokerConnected = true;
    EXPECT_EQ(CollectHealth(state).reasons,
              std::vector<std::string>{"The database cannot be reached, or cannot do its work"});
    state.databaseConnected = true;
    EXPECT_TRUE(CollectHealth(state).reasons.empty());
}

TEST(CollectState, IsShownAsMetrics) {
    CollectState state;
    state.stored = 3;
    state.pending = 4'000'000;
    const std::string text = CollectMetrics(state);
    EXPECT_NE(text.find("# TYPE lumcollect_stored_total counter\nlumcollect_stored_total 3\n"),
              std::string::npos);
    EXPECT_NE(text.find("# TYPE lumcollect_pending gauge\nlumcollect_pending 4000000\n"), std::string::npos);
}

}  // namespace
