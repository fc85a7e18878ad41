#include <gtest/gtest.h>

#include "alerts/AlertCeiling.h"
#include "support/StartedModule.h"

namespace {

TEST(AlertCeiling, CountsByTheMinute) {
    AlertCeiling_t ceiling;
    ceiling.SetPerMinute(2);
    EXPECT_TRUE(ceiling.Admit(0));
    EXPECT_TRUE(ceiling.Admit(59));
    EXPECT_FALSE(ceiling.Admit(59));
    EXPECT_EQ(ceiling.TakeHeldBack(59), 0U) << "the minute is not over";
    EXPECT_TRUE(ceiling.Admit(60));
    EXPECT_EQ(ceiling.TakeHeldBack(60), 1U);
    EXPECT_EQ(ceiling.TakeHeldBack(60), 0U);
    ceiling.SetPerMinute(0);
    for (int i = 0; i < 1000; ++i) {
        EXPECT_TRUE(ceiling.Admit(61));
    }
}

TEST(AlertCeiling, IsReadFromTheAgentsSettings) {
    StartedModule harness;
    EXPECT_EQ(AlertCeiling.GetPerMinute(), 600U);
    static_cast<void>(harness.Directory().Write("config/agent.ini", "[Agent]\nAlertsPerMinute = 7\n"));
    LoadAlertCeiling();
    EXPECT_EQ(AlertCeiling.GetPerMinute(), 7U);
}

TEST(AlertCeiling, TellsInOneLineHowManyWereHeldBack) {
    StartedModule harness;
    AlertCeiling.SetPerMinute(1);
    const std::time_t lastMinute = std::time(nullptr) - 60;
    for (int i = 0; i < 4; ++i) {
        static_cast<void>(AlertCeiling.Admit(lastMinute));
    }
    TellHeldBackAlerts();
    TellHeldBackAlerts();
    EXPECT_EQ(harness.Log().Count(
                  "error TellHeldBackAlerts: 3 alerts were held back, no more than 1 a minute leave\n"),
              1U);
}

}  // namespace
