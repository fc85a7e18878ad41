#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/log/LumDebug.h"
#include "host/thread/LumMutex.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "support/LinkedModule.h"

namespace {

using testing::ElementsAre;

constexpr LumRoutine kRoutine(ModuleDebug, "Routine");

class DatabaseScopeTest : public testing::Test, protected LinkedModule {
protected:
    DatabaseScopeTest() {
        Initialise();
        Log().Forget();
    }

    /// How often this thread holds the lock: what is left of how often it may.
    static uint32_t Held() LUM_NO_THREAD_SAFETY_ANALYSIS {
        uint32_t more = 0;
        while (DatabaseMutex.Lock()) {
            ++more;
        }
        for (uint32_t i = 0; i < more; ++i) {
            DatabaseMutex.Unlock();
        }
        return LumMutex::kMaxDepth - more;
    }
};

TEST_F(DatabaseScopeTest, HoldsTheLockUntilItEnds) {
    {
        const DatabaseScope scope(kRoutine);
        EXPECT_TRUE(scope.IsLocked());
        EXPECT_EQ(Held(), 1U);
    }
    EXPECT_EQ(Held(), 0U);
}

TEST_F(DatabaseScopeTest, GivesTheLockBackOnce) {
    DatabaseScope outer(kRoutine);
    {
        DatabaseScope inner(kRoutine);
        EXPECT_EQ(Held(), 2U);
        inner.Unlock();
        EXPECT_FALSE(inner.IsLocked());
        EXPECT_EQ(Held(), 1U);
        inner.Unlock();
    }
    EXPECT_EQ(Held(), 1U);
}

TEST_F(DatabaseScopeTest, KeepsResultsReadableAfterTheLock) {
    DatabaseScope scope(kRoutine);
    GenSqlResult* const rows = scope.Query("SELECT 'kept'");
    scope.Unlock();
    ASSERT_NE(rows, nullptr);
    LumString text;
    ASSERT_TRUE(rows->GetColumn(0, text));
    EXPECT_EQ(text, "kept");
}

TEST_F(DatabaseScopeTest, SaysThatTheLockCannotBeHadAndStillConnects) {
    {
        const DatabaseLockout lockout;
        DatabaseScope scope(kRoutine);
        EXPECT_FALSE(scope.IsLocked());
        EXPECT_NE(scope.Query("SELECT 1"), nullptr);
        // Gives back nothing that it did not take.
        scope.Unlock();
        EXPECT_EQ(Held(), LumMutex::kMaxDepth);
    }
    EXPECT_THAT(Said(), ElementsAre("error Routine: Failed to lock database"));
}

}  // namespace
