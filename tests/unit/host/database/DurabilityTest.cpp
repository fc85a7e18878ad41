// Changes that have to survive a loss of power: who waits for which sync, and what a sync that fails means.

#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "host/database/Database.h"
#include "support/FaultVfs.h"
#include "support/TestDatabase.h"

namespace {

using Call = FaultVfs::Call;

constexpr const char* kInsert = "INSERT INTO t (a) VALUES (1)";
constexpr const char* kSyncFailed =
    "error Test DBConnection: Failed to sync the write-ahead log: disk I/O error";

class Durability : public testing::Test {
protected:
    void SetUp() override {
        Use(DBSynchronous::kFull);
        Make("CREATE TABLE t (a)");
    }
    void TearDown() override {
        faults_.Reset();
        Use(DBSynchronous::kFull);
    }

    static void Use(DBSynchronous synchronous) { DBConnectionPool::SetSynchronous(synchronous); }

    /// Makes a change that is durable afterwards, and forgets what was counted.
    void Make(const LumString& sql) {
        ASSERT_TRUE(database_.Run(sql));
        ASSERT_TRUE(DBAwaitDurable());
        faults_.Reset();
    }
    bool Insert() { return database_.Run(kInsert); }
    [[nodiscard]] uint64_t Syncs() const { return faults_.CountCalls(Call::kSync); }

    FaultVfs faults_;
    TestDatabase database_;
};

TEST_F(Durability, SyncsWhatWasCommittedOnceItIsWaitedFor) {
    EXPECT_TRUE(Insert());
    EXPECT_EQ(Syncs(), 0U);
    EXPECT_TRUE(DBAwaitDurable());
    EXPECT_EQ(Syncs(), 1U);
    EXPECT_TRUE(DBAwaitDurable()) << "there is nothing left to wait for";
    EXPECT_EQ(Syncs(), 1U);
}

TEST_F(Durability, MakesOneSyncForAllCommitsOfAThread) {
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(Insert());
    }
    EXPECT_TRUE(DBAwaitDurable());
    EXPECT_EQ(Syncs(), 1U);
}

TEST_F(Durability, DoesNotSyncForReaders) {
    EXPECT_EQ(database_.Rows("SELECT count(*) FROM t"), "0");
    EXPECT_TRUE(DBAwaitDurable());
    EXPECT_EQ(Syncs(), 0U);
}

TEST_F(Durability, SyncsATransactionWhenItIsCommitted) {
    {
        DBConnection connection(database_.Pool());
        ASSERT_TRUE(connection.BeginTransaction());
        ASSERT_NE(connection.Query(kInsert), nullptr);
        EXPECT_TRUE(DBAwaitDurable());
        EXPECT_EQ(Syncs(), 0U) << "nothing was committed yet";
        ASSERT_TRUE(connection.CommitTransaction());
    }
    EXPECT_TRUE(DBAwaitDurable());
    EXPECT_EQ(Syncs(), 1U);
}

TEST_F(Durability, LeavesTheDiskAloneWhereThatIsAskedFor) {
    Use(DBSynchronous::kNormal);
    database_.Select(database_.Directory().At("normal.sqlite3"));
    Make("CREATE TABLE t (a)");
    EXPECT_TRUE(Insert());
    EXPECT_TRUE(DBAwaitDurable());
    EXPECT_EQ(Syncs(), 0U);
}

TEST_F(Durability, SharesOneSyncAmongThreadsThatWait) {
    faults_.HoldSyncs(true);
    const auto insertAndWait = [this] { EXPECT_TRUE(Insert() && DBAwaitDurable()); };
    std::thread first(insertAndWait);
    ASSERT_TRUE(faults_.AwaitHeldSyncs(1));
    // The disk is busy, and everybody else goes on: nobody holds the handle while waiting for it.
    std::vector<std::thread> others;
    for (int i = 0; i < 6; ++i) {
        others.emplace_back(insertAndWait);
    }
    while (database_.Rows("SELECT count(*) FROM t") != "7") {
        std::this_thread::yield();
    }
    faults_.HoldSyncs(false);
    first.join();
    for (std::thread& other : others) {
        other.join();
    }
    EXPECT_EQ(Syncs(), 2U);
}

TEST_F(Durability, SaysOnceThatASyncFailedAndOpensTheDatabaseAnew) {
    faults_.FailCall(Call::kSync, 1, SQLITE_IOERR_FSYNC);
    EXPECT_TRUE(Insert());
    EXPECT_FALSE(DBAwaitDurable());
    EXPECT_FALSE(DBTakeDurable());
    EXPECT_TRUE(DBTakeDurable()) << "the failure was told";
    EXPECT_EQ(database_.Lines(), std::vector<std::string>{kSyncFailed});
    faults_.Reset();
    EXPECT_TRUE(Insert() && DBAwaitDurable());
    EXPECT_GT(faults_.CountCalls(Call::kOpen), 0U) << "the database was opened anew";
    EXPECT_EQ(database_.Rows("SELECT count(*) FROM t"), "2");
    EXPECT_EQ(database_.Lines().size(), 1U);
}

TEST_F(Durability, TakesNoChangeUntilTheDatabaseProvedSound) {
    faults_.FailCallsFrom(Call::kSync, 1, SQLITE_IOERR_FSYNC);
    EXPECT_TRUE(Insert());
    EXPECT_FALSE(DBAwaitDurable());
    EXPECT_FALSE(Insert());
    EXPECT_FALSE(Insert());
    EXPECT_EQ(database_.Lines().back(), std::string("error Test DBConnection: cannot open database '") +
                                            database_.Path().GetString() +
                                            "': disk I/O error in statement: INSERT INTO t (a) VALUES (?)");
    faults_.Reset();
    EXPECT_TRUE(Insert() && DBAwaitDurable());
    EXPECT_EQ(database_.Rows("SELECT count(*) FROM t"), "2");
    EXPECT_EQ(database_.Rows("pragma integrity_check"), "ok");
}

TEST_F(Durability, TakesNoChangeWhereTheDatabaseIsDamagedAfterwards) {
    EXPECT_TRUE(
        database_.Run("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1000) "
                      "INSERT INTO t SELECT zeroblob(1000) FROM n"));
    {
        DBConnection connection(database_.Pool());
        EXPECT_TRUE(connection.CutLogBack());
    }
    ASSERT_TRUE(Insert() && DBAwaitDurable());
    const std::string path = database_.Path().GetString();
    const std::string whole = ReadWholeFile(path);
    const auto overwrite = [&](const std::string& bytes) {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(40960) << bytes.substr(40960, 40960);
    };
    faults_.FailCall(Call::kSync, 1, SQLITE_IOERR_FSYNC);
    EXPECT_TRUE(Insert());
    EXPECT_FALSE(DBAwaitDurable());
    faults_.Reset();
    overwrite(std::string(whole.size(), '\xee'));
    EXPECT_FALSE(Insert());
    EXPECT_NE(database_.Lines().back().find("it is not sound after a failed sync: "), std::string::npos)
        << database_.Lines().back();
    overwrite(whole);
    EXPECT_TRUE(Insert() && DBAwaitDurable());
    EXPECT_EQ(database_.Rows("pragma integrity_check"), "ok");
}

TEST_F(Durability, ConfirmsNothingAfterTheLogCouldNotBeTakenIn) {
    faults_.FailCall(Call::kSync, 1, SQLITE_IOERR_FSYNC);
    // So large a change that the log is taken in at once; that is what syncs first.
    EXPECT_TRUE(database_.Run("INSERT INTO t (a) VALUES (zeroblob(20000000))"));
    EXPECT_FALSE(DBAwaitDurable()) << "the next sync would succeed, and prove nothing";
    EXPECT_EQ(database_.Lines(), std::vector<std::string>{kSyncFailed});
}

TEST_F(Durability, FinishesATransactionOnAFailedLogWithoutConfirmingIt) {
    EXPECT_TRUE(Insert());
    DBConnection connection(database_.Pool());
    ASSERT_TRUE(connection.BeginTransaction());
    faults_.FailCall(Call::kSync, 1, SQLITE_IOERR_FSYNC);
    EXPECT_FALSE(DBAwaitDurable());
    EXPECT_NE(connection.Query(kInsert), nullptr);
    EXPECT_TRUE(connection.CommitTransaction());
    EXPECT_FALSE(DBAwaitDurable());
    EXPECT_EQ(database_.Rows("SELECT count(*) FROM t"), "2");
}

TEST_F(Durability, SyncsWhatWaitsBeforeTheDatabaseIsClosed) {
    EXPECT_TRUE(Insert());
    database_.Select(database_.Directory().At("other.sqlite3"));
    EXPECT_GE(Syncs(), 1U);
    EXPECT_TRUE(DBAwaitDurable());
}

}  // namespace
