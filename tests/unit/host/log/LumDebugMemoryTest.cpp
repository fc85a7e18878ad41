#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/log/LumDebug.h"
#include "support/LogReader.h"
#include "support/MemoryFault.h"

namespace {

using testing::ElementsAre;

constexpr const char* kLong = "a text that is too long to lie in the object itself: %d";

/// A line that lacks a block of memory is left out or written, never half, and whoever logs it goes on; the
/// next one says that there was another.
TEST(LumDebugMemory, RunsOutAnywhereAndTheLineIsLeftOut) {
    uint64_t turn = 1;
    for (bool ranOut = true; ranOut; ++turn) {
        LogLines lines;
        LumDebug logger("Module", "A module");
        logger.SetContext(&lines.Context());
        {
            const MemoryFault fault(turn);
            EXPECT_NO_THROW(logger.ErrorWithNL(kLong, 1));
        }
        ranOut = MemoryFault::Count() >= turn;
        const bool wasWritten = lines.Count("1\n") == 1;
        logger.PrintWithNL("after it");
        if (wasWritten) {
            EXPECT_EQ(lines.Count("left out"), 0U) << turn;
        } else {
            EXPECT_THAT(
                lines.Said(),
                ElementsAre("warning Host 1 lines were left out here, as there was no memory for them",
                            "print Module after it"))
                << turn;
        }
    }
    EXPECT_GT(turn, 3U);
}

}  // namespace
