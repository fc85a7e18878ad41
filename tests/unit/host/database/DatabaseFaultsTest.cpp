// The database on a disk that fails: full, read-only, damaged, or gone in the middle of a call.

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/database/Database.h"
#include "support/ChildProcess.h"
#include "support/FaultVfs.h"
#include "support/ResourceLimit.h"
#include "support/Sqlite.h"
#include "support/TestDatabase.h"

namespace {

using Call = FaultVfs::Call;
using Lines = std::vector<std::string>;

constexpr const char* kInsert = "INSERT INTO t (a) VALUES (1)";
constexpr const char* kInsertShown = "INSERT INTO t (a) VALUES (?)";

TEST(DatabaseFaults, SaysThatAFileIsNoDatabaseAndLeavesIt) {
    TestDatabase database;
    const std::string garbage(10000, '?');
    database.Directory().Write("test.sqlite3", garbage);
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(database.Run("SELECT 1"));
        EXPECT_EQ(database.Lines().back(), std::string("error Test DBConnection: cannot open database '") +
                                               database.Path().GetString() +
                                               "': file is not a database in statement: SELECT ?");
    }
    EXPECT_EQ(database.Directory().Read("test.sqlite3"), garbage);
}

/// Fills two tables; the first one's rows lie before the second one's.
void FillTwoTables(const LumString& path) {
    Sqlite(path.GetString())
        .Run(
            "CREATE TABLE good (a); INSERT INTO good VALUES ('there'); CREATE TABLE bad (a);"
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1000) "
            "INSERT INTO bad SELECT zeroblob(1000) FROM n");
}

TEST(DatabaseFaults, UsesADamagedDatabaseForAsLongAsItAnswers) {
    TestDatabase database;
    FillTwoTables(database.Path());
    std::string bytes = database.Directory().Read("test.sqlite3");
    std::fill(bytes.begin() + 40960, bytes.begin() + 81920, '\xee');
    database.Directory().Write("test.sqlite3", bytes);
    EXPECT_EQ(database.Rows("SELECT a FROM good"), "there");
    EXPECT_EQ(database.Rows("SELECT sum(length(a)) FROM bad"), "failed");
    EXPECT_EQ(database.Lines(), Lines{"error Test DBConnection: database disk image is malformed in "
                                      "statement: SELECT sum(length(a)) FROM bad"});
    EXPECT_NE(database.Rows("pragma integrity_check"), "ok");
    EXPECT_TRUE(database.Run("INSERT INTO good VALUES ('more')"));
}

TEST(DatabaseFaults, SaysThatADatabaseIsCutOff) {
    TestDatabase database;
    FillTwoTables(database.Path());
    std::filesystem::resize_file(database.Path().GetString(), 40960);
    EXPECT_FALSE(database.Run("SELECT a FROM good"));
    EXPECT_EQ(
        database.Lines(),
        Lines{std::string("error Test DBConnection: cannot open database '") + database.Path().GetString() +
              "': database disk image is malformed in statement: SELECT a FROM good"});
}

TEST(DatabaseFaults, FailsAStatementWhoseWriteFailsAndGoesOn) {
    FaultVfs faults;
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    faults.FailCall(Call::kWrite, 1, SQLITE_IOERR_WRITE);
    EXPECT_FALSE(database.Run(kInsert));
    EXPECT_EQ(database.Lines(),
              Lines{std::string("error Test DBConnection: disk I/O error in statement: ") + kInsertShown});
    EXPECT_TRUE(database.Run(kInsert));
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "1");
    EXPECT_EQ(database.Rows("pragma integrity_check"), "ok");
}

TEST(DatabaseFaults, SaysThatTheDiskIsFullAndGoesOnWhenItIsNot) {
    FaultVfs faults;
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    faults.SetDiskFull(true);
    EXPECT_FALSE(database.Run(kInsert));
    EXPECT_EQ(database.Lines().back(),
              std::string("error Test DBConnection: database or disk is full in statement: ") + kInsertShown);
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "0");
    faults.SetDiskFull(false);
    EXPECT_TRUE(database.Run(kInsert));
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "1");
}

TEST(DatabaseFaults, BearsAFileThatMayNotGrow) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    {
        const ResourceLimit limit(RLIMIT_FSIZE, 65536);
        EXPECT_FALSE(database.Run("INSERT INTO t VALUES (randomblob(200000))"));
    }
    EXPECT_TRUE(database.Run(kInsert));
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "1");
}

TEST(DatabaseFaults, OpensWhenTheDiskAnswersAgain) {
    FaultVfs faults;
    TestDatabase database;
    const std::vector<std::pair<Call, int>> kinds = {{Call::kOpen, SQLITE_CANTOPEN},
                                                     {Call::kRead, SQLITE_IOERR_READ},
                                                     {Call::kLock, SQLITE_IOERR_LOCK},
                                                     {Call::kShmMap, SQLITE_IOERR_SHMMAP}};
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    for (const auto& [call, code] : kinds) {
        database.Select(database.Path());
        faults.FailCallsFrom(call, 1, code);
        EXPECT_FALSE(database.Run("SELECT * FROM t"));
        faults.Reset();
        EXPECT_TRUE(database.Run("SELECT * FROM t"));
    }
    EXPECT_EQ(database.Lines()[0], std::string("error Test DBConnection: cannot open database '") +
                                       database.Path().GetString() +
                                       "': unable to open database file in statement: SELECT * FROM t");
}

TEST(DatabaseFaults, ReportsACommitThatFailsAndRollsBack) {
    FaultVfs faults;
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    {
        DBConnection connection(database.Pool());
        EXPECT_TRUE(connection.BeginTransaction());
        EXPECT_NE(connection.Query(kInsert), nullptr);
        faults.FailCall(Call::kWrite, 1, SQLITE_IOERR_WRITE);
        EXPECT_FALSE(connection.CommitTransaction());
        EXPECT_TRUE(connection.RollbackTransaction());
    }
    EXPECT_EQ(database.Lines(), Lines{"error Test DBConnection: disk I/O error in statement: COMMIT"});
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "0");
}

TEST(DatabaseFaults, FailsWithOneLineAtWhicheverCallTheDiskFails) {
    for (uint64_t nth = 1;; ++nth) {
        FaultVfs faults;
        TestDatabase database;
        EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
        EXPECT_TRUE(database.Run(kInsert));
        faults.Reset();
        faults.FailCall(Call::kAny, nth, SQLITE_IOERR);
        const bool inserted = database.Run(kInsert);
        EXPECT_EQ(database.Lines().size(), inserted ? 0U : 1U);
        const bool reached = faults.CountCalls(Call::kAny) >= nth;
        faults.Reset();
        EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), inserted ? "2" : "1");
        EXPECT_EQ(database.Rows("pragma integrity_check"), "ok");
        if (!reached) {
            EXPECT_GT(nth, 3U);
            break;
        }
    }
}

/// Where root runs the tests a file's mode stops nobody, so another user does the work.
int AsAnotherUser(const TestDatabase& database, const std::function<int()>& work) {
    chmod(database.Directory().Path().c_str(), 0755);
    ChildProcess child([&work](const auto& /*parent*/) {
        constexpr uid_t kNobody = 65534;
        if (geteuid() == 0 && seteuid(kNobody) != 0) {
            return 100;
        }
        return work();
    });
    return child.Join();
}

TEST(DatabaseFaults, ReadsADatabaseThatItMayNotWrite) {
    TestDatabase database;
    Sqlite(database.Path().GetString()).Run("CREATE TABLE t (a); INSERT INTO t VALUES ('there')");
    chmod(database.Path().GetString(), 0444);
    const int status = AsAnotherUser(database, [&database] {
        const bool reads = database.Rows("SELECT a FROM t") == "there";
        return (reads ? 0 : 1) + (database.Run("INSERT INTO t (a) VALUES (1)") ? 2 : 0);
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(database.Lines(), Lines{"error Test DBConnection: attempt to write a readonly database in "
                                      "statement: INSERT INTO t (a) VALUES (?)"});
}

TEST(DatabaseFaults, SaysThatADirectoryTakesNoDatabase) {
    TestDatabase database;
    EXPECT_EQ(AsAnotherUser(database, [&database] { return database.Run("SELECT 1") ? 1 : 0; }), 0);
    EXPECT_EQ(database.Lines(),
              Lines{std::string("error Test DBConnection: cannot open database '") +
                    database.Path().GetString() + "': Permission denied in statement: SELECT ?"});
}

/// Inserts until it is killed at the given call, and tells the parent of each row that is stored.
int InsertUntilKilled(const LumString& path, uint64_t nth, const ChildProcess::Parent& parent) {
    FaultVfs faults;
    DBConnectionPool pool;
    pool.SetSerialConnections(true);
    pool.SetDatabase("SQLITE23", "", path, "", "", 0);
    faults.KillAtCall(Call::kAny, nth);
    for (int i = 0; i < 10; ++i) {
        if (DBConnection(pool).Query("INSERT INTO t (a) VALUES (1)") == nullptr) {
            return 1;
        }
        parent.Tell();
    }
    return 0;
}

TEST(DatabaseFaults, KeepsEveryAnsweredRowWhenTheProcessIsKilled) {
    int killed = 0;
    for (uint64_t nth = 1; nth < 80; nth += 3) {
        TestDatabase database;
        const LumString path = database.Path();
        Sqlite(path.GetString()).Run("PRAGMA journal_mode = WAL; CREATE TABLE t (a)");
        ChildProcess child([&](const auto& parent) { return InsertUntilKilled(path, nth, parent); });
        int answered = 0;
        while (child.Await()) {
            ++answered;
        }
        const int status = child.Join();
        EXPECT_TRUE(status == -SIGKILL || status == 0);
        killed += status == -SIGKILL ? 1 : 0;
        // A row may be stored and its answer lost, never the other way round.
        const int stored = std::stoi(database.Rows("SELECT count(*) FROM t"));
        EXPECT_TRUE(stored == answered || stored == answered + 1) << stored << " of " << answered;
        EXPECT_EQ(database.Rows("pragma integrity_check"), "ok");
    }
    EXPECT_GT(killed, 20);
}

/// The file could be written when it was opened, cannot be now, and can be again when it is looked at.
TEST(DatabaseFaults, OpensADatabaseAnewThatCouldNotBeWrittenForAMoment) {
    FaultVfs faults;
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    const uint32_t opened = database.Pool().GetOpenCount();
    faults.FailCall(Call::kWrite, 1, SQLITE_READONLY);
    EXPECT_TRUE(database.Run(kInsert));
    faults.FailCall(Call::kLock, 1, SQLITE_READONLY);
    {
        DBConnection connection(database.Pool());
        EXPECT_TRUE(connection.BeginTransaction());
        EXPECT_NE(connection.Query(kInsert), nullptr);
        EXPECT_TRUE(connection.CommitTransaction());
    }
    EXPECT_GT(database.Pool().GetOpenCount(), opened);
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "2");
    EXPECT_EQ(database.Lines(), Lines{});
}

}  // namespace
