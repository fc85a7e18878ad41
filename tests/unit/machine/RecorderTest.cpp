#include <memory>
#include <vector>

#include <gtest/gtest.h>
#include <poll.h>

#include "machine/Recorder.h"
#include "machine/source/MachineLog.h"
#include "support/LogReader.h"
#include "support/MemoryFault.h"
#include "support/ResourceLimit.h"
#include "support/WaitFor.h"

namespace {

class RecorderTest : public testing::Test {
protected:
    void SetUp() override { MachineDebug.SetContext(&log_.Context()); }
    void TearDown() override { MachineDebug.SetContext(nullptr); }

    LogLines log_;
    Recorder recorder_;
};

TEST_F(RecorderTest, EndsWhenItIsToldTo) {
    EXPECT_TRUE(recorder_.End(0)) << "it has not begun";
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(recorder_.Begin());
        EXPECT_TRUE(recorder_.End(30'000));
    }
}

TEST_F(RecorderTest, DoesNotBeginWithoutADescriptor) {
    const ResourceLimit noFiles(RLIMIT_NOFILE, 0);
    EXPECT_FALSE(recorder_.Begin());
}

TEST_F(RecorderTest, OutlivesALackOfMemory) {
    {
        // The list of what is waited for.
        const MemoryFault fault(1, sizeof(pollfd));
        ASSERT_TRUE(recorder_.Begin());
        EXPECT_TRUE(WaitFor([this] {
            return log_.Count("error MachineEvents Recorder::ThreadMain: A turn failed, std::bad_alloc") == 1;
        }));
    }
    EXPECT_TRUE(recorder_.End(30'000));
}

}  // namespace
