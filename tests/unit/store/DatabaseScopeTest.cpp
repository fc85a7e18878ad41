#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/thread/LumMutex.h"
#include "store/DatabaseScope.h"
#include "support/TestHost.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class DatabaseScopeTest : public testing::Test {
protected:
    DatabaseScopeTest() {
        TestHost::Initialise();
        started_ = host_.Log().size();
    }
    [[nodiscard]] std::vector<std::string> Said() const { return host_.Said(started_); }

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

    const TestHost host_;
    std::size_t started_ = 0;
};

TEST_F(DatabaseScopeTest, HoldsTheLockUntilItEnds) {
    {
        const DatabaseScope scope("Routine");
        EXPECT_TRUE(scope.IsLocked());
        EXPECT_EQ(Held(), 1U);
    }
    EXPECT_EQ(Held(), 0U);
}

TEST_F(DatabaseScopeTest, GivesTheLockBackOnce) {
    DatabaseScope outer("Routine");
    {
        DatabaseScope inner("Routine");
        EXPECT_EQ(Held(), 2U);
        inner.Unlock();
        EXPECT_FALSE(inner.IsLocked());
        EXPECT_EQ(Held(), 1U);
        inner.Unlock();
    }
    EXPECT_EQ(Held(), 1U);
}

TEST_F(DatabaseScopeTest, KeepsResultsReadableAfterTheLock) {
    DatabaseScope scope("Routine");
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
        DatabaseScope scope("Routine");
        EXPECT_FALSE(scope.IsLocked());
        EXPECT_NE(scope.Query("SELECT 1"), nullptr);
        // Gives back nothing that it did not take.
        scope.Unlock();
        EXPECT_EQ(Held(), LumMutex::kMaxDepth);
    }
    EXPECT_THAT(Said(), ElementsAre("error Routine: Failed to lock database"));
}

TEST_F(DatabaseScopeTest, CommitsWhatSucceedsAsAWhole) {
    DatabaseScope scope("Routine");
    EXPECT_TRUE(RunInTransaction(
        scope.Connection(), {"CREATE TABLE T (a)", "INSERT INTO T VALUES (1)", "INSERT INTO T VALUES (2)"}));
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM T"), "2");
    EXPECT_THAT(Said(), IsEmpty());
}

TEST_F(DatabaseScopeTest, RollsBackAtTheFirstFailure) {
    DatabaseScope scope("Routine");
    EXPECT_FALSE(RunInTransaction(
        scope.Connection(), {"CREATE TABLE T (a)", "INSERT INTO Nowhere VALUES (1)", "CREATE TABLE U (a)"}));
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM sqlite_master WHERE name IN ('T', 'U')"), "0");
    EXPECT_THAT(Said(), ElementsAre(StartsWith("error DBConnection: no such table: Nowhere")));
}

TEST_F(DatabaseScopeTest, RollsBackWhereTheCommitFails) {
    DatabaseScope scope("Routine");
    // A reference that is only looked at when the transaction ends.
    ASSERT_NE(scope.Query("PRAGMA foreign_keys = ON"), nullptr);
    ASSERT_NE(scope.Query("CREATE TABLE P (id INTEGER PRIMARY KEY)"), nullptr);
    ASSERT_NE(scope.Query("CREATE TABLE C (p REFERENCES P (id) DEFERRABLE INITIALLY DEFERRED)"), nullptr);
    EXPECT_FALSE(RunInTransaction(scope.Connection(), {"INSERT INTO C VALUES (7)"}));
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM C"), "0");
    EXPECT_TRUE(
        RunInTransaction(scope.Connection(), {"INSERT INTO P VALUES (7)", "INSERT INTO C VALUES (7)"}));
}

TEST_F(DatabaseScopeTest, RunsNothingWhereNoTransactionCanBegin) {
    DatabaseScope scope("Routine");
    ASSERT_TRUE(scope.Connection().BeginTransaction());
    EXPECT_FALSE(RunInTransaction(scope.Connection(), {"CREATE TABLE T (a)"}));
    EXPECT_TRUE(scope.Connection().CommitTransaction());
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM sqlite_master WHERE name = 'T'"), "0");
}

}  // namespace
