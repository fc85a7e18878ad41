#include <csignal>

#include <gtest/gtest.h>

#include "fleet/service/SteadyClock.h"
#include "fleet/service/StopSignal.h"

namespace {

/// In a process of its own: a signal that has come stays noted.
TEST(StopSignalDeathTest, EndsAWaitAndStaysNoted) {
    const auto run = [] {
        const StopSignal signals;
        const bool before = StopSignal::IsSet() || StopSignal::Wait(1);
        static_cast<void>(std::raise(SIGPIPE));  // of no concern
        static_cast<void>(std::raise(SIGTERM));
        const int64_t start = SteadyMs();
        constexpr int64_t longWait = 60'000;
        const bool came = StopSignal::Wait(longWait) && StopSignal::IsSet();
        std::exit(!before && came && SteadyMs() - start < longWait ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

}  // namespace
