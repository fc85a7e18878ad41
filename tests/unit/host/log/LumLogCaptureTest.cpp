#include <thread>

#include <gtest/gtest.h>

#include "host/log/LumLogCapture.h"
#include "support/LogReader.h"

namespace {

TEST(LumLogCapture, KeepsTheWarningsAndErrorsOfItsThread) {
    const HostLogLines log;
    LumHostDebug().ErrorWithNL("before");
    {
        const LumLogCapture capture;
        LumHostDebug().PrintWithNL("not worth it");
        LumHostDebug().WarningWithNL("a %s", "warning");
        std::thread([] { LumHostDebug().ErrorWithNL("elsewhere"); }).join();
        {
            const LumLogCapture inner;
            LumHostDebug().ErrorWithNL("inside");
            ASSERT_EQ(inner.GetLines().size(), 1U);
        }
        LumHostDebug().ErrorWithNL("an error");
        ASSERT_EQ(capture.GetLines().size(), 2U);
        EXPECT_EQ(capture.GetLines()[0], "warning Host a warning");
        EXPECT_EQ(capture.GetLines()[1], "error Host an error");
    }
    LumHostDebug().ErrorWithNL("after");
    EXPECT_EQ(log.Count("error Host after"), 1U);
}

TEST(LumLogCapture, IsBounded) {
    const HostLogLines log;
    const LumLogCapture capture;
    for (std::size_t i = 0; i < LumLogCapture::kMaxLines + 5; ++i) {
        LumHostDebug().WarningWithNL("again");
    }
    EXPECT_EQ(capture.GetLines().size(), LumLogCapture::kMaxLines);
}

}  // namespace
