#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/database/Database.h"
#include "support/ChildProcess.h"
#include "support/FaultVfs.h"
#include "support/Sqlite.h"
#include "support/TestDatabase.h"

namespace {

using Lines = std::vector<std::string>;

unsigned ModeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0U;
}

TEST(DBConnectionPool, RefusesAnotherTypeOfDatabase) {
    TestDatabase database;
    EXPECT_FALSE(database.Pool().SetDatabase("ORACLE", "", database.Path(), "", "", 0));
    EXPECT_EQ(database.Lines(), Lines{"error Test DBConnectionPool: unknown type of database 'ORACLE'"});
}

TEST(DBConnectionPool, ReportsToTheHostUntilItHasALogger) {
    HostLogLines lines;
    DBConnectionPool pool;
    DBConnection connection(pool);
    EXPECT_EQ(connection.Query("SELECT 1"), nullptr);
    EXPECT_EQ(lines.Said().front(),
              "error Host DBConnection: no database is selected in statement: SELECT ?");
}

TEST(DBConnectionPool, OpensNothingBeforeTheFirstStatement) {
    TestDatabase database;
    { const DBConnection connection(database.Pool()); }
    EXPECT_EQ(database.Directory().CountEntries(), 0U);
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    EXPECT_TRUE(database.Directory().Has("test.sqlite3"));
}

TEST(DBConnectionPool, MakesFilesForTheirOwnerAlone) {
    const mode_t old = umask(0);
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    umask(old);
    const std::string path = database.Path().GetString();
    EXPECT_EQ(ModeOf(path), 0600U);
    EXPECT_EQ(ModeOf(path + "-wal"), 0600U);
    EXPECT_EQ(ModeOf(path + "-shm"), 0600U);
}

TEST(DBConnectionPool, UsesTheWriteAheadLog) {
    TestDatabase database;
    EXPECT_EQ(database.Rows("PRAGMA journal_mode"), "wal");
}

TEST(DBConnectionPool, TriesAgainToOpenWhatCouldNotBeOpened) {
    TestDatabase database;
    const LumString path = database.Directory().At("later/test.sqlite3");
    database.Select(path);
    EXPECT_FALSE(database.Run("SELECT 1"));
    database.Directory().MakeDirectory("later");
    EXPECT_EQ(database.Rows("SELECT 1"), "1");
    EXPECT_EQ(database.Lines(),
              Lines{std::string("error Test DBConnection: cannot open database '") + path.GetString() +
                    "': No such file or directory in statement: SELECT ?"});
}

TEST(DBConnectionPool, RefusesWhatIsNoRegularFile) {
    TestDatabase database;
    database.Directory().MakeDirectory("directory");
    ASSERT_EQ(mkfifo(database.Directory().At("pipe").GetString(), 0600), 0);
    std::filesystem::create_symlink("nowhere", database.Directory().Path() / "link");
    Lines expected;
    for (const auto& [name, reason] :
         {std::pair("directory", "Is a directory"), std::pair("pipe", "Not a regular file"),
          std::pair("link", "No such file or directory")}) {
        database.Select(database.Directory().At(name));
        EXPECT_FALSE(database.Run("SELECT 1"));
        expected.push_back(std::string("error Test DBConnection: cannot open database '") +
                           database.Path().GetString() + "': " + reason + " in statement: SELECT ?");
    }
    EXPECT_EQ(database.Lines(), expected);
}

TEST(DBConnectionPool, TakesEveryTextForTheNameOfAFile) {
    const std::filesystem::path old = std::filesystem::current_path();
    TestDatabase database;
    std::filesystem::current_path(database.Directory().Path());
    for (const char* name : {":memory:", "file:x.db?mode=memory", "plain.db"}) {
        database.Select(name);
        EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
        EXPECT_TRUE(database.Directory().Has(name)) << name;
    }
    std::filesystem::current_path(old);
}

TEST(DBConnectionPool, ClosesTheFormerDatabase) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    EXPECT_TRUE(database.Directory().Has("test.sqlite3-wal"));
    database.Select(database.Directory().At("other.sqlite3"));
    EXPECT_FALSE(database.Directory().Has("test.sqlite3-wal"));
    EXPECT_FALSE(database.Run("SELECT * FROM t"));
}

TEST(DBConnectionPool, ShowsARowToAnotherProcessAtOnce) {
    TestDatabase database;
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    EXPECT_TRUE(database.Run("INSERT INTO t VALUES ('seen')"));
    const LumString path = database.Path();
    ChildProcess reader([&path](const ChildProcess::Parent& /*parent*/) {
        return Sqlite(path.GetString()).Rows("SELECT a FROM t") == "seen" ? 0 : 1;
    });
    EXPECT_EQ(reader.Join(), 0);
}

/// Holds the database until it is told to let go.
int HoldDatabase(const LumString& path, const ChildProcess::Parent& parent) {
    const Sqlite raw(path.GetString());
    if (raw.Try("BEGIN EXCLUSIVE") != SQLITE_OK) {
        return 1;
    }
    parent.Tell();
    parent.Await();
    return raw.Try("COMMIT") == SQLITE_OK ? 0 : 1;
}

TEST(DBConnectionPool, WaitsForAnotherProcessThatHoldsTheDatabase) {
    FaultVfs faults;
    TestDatabase database;
    const LumString path = database.Path();
    Sqlite(path.GetString()).Run("PRAGMA journal_mode = WAL; CREATE TABLE t (a)");
    ChildProcess holder([&path](const auto& parent) { return HoldDatabase(path, parent); });
    ASSERT_TRUE(holder.Await());
    faults.Reset();
    std::thread writer([&database] { EXPECT_TRUE(database.Run("INSERT INTO t VALUES (1)")); });
    while (faults.CountCalls(FaultVfs::Call::kLock) < 10) {
        std::this_thread::yield();
    }
    holder.Tell();
    writer.join();
    EXPECT_EQ(holder.Join(), 0);
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "1");
}

TEST(DBConnectionPool, FailsWhenAnotherProcessHoldsTheDatabaseForTooLong) {
    TestDatabase database;
    const LumString path = database.Path();
    Sqlite(path.GetString()).Run("PRAGMA journal_mode = WAL; CREATE TABLE t (a)");
    ChildProcess holder([&path](const auto& parent) { return HoldDatabase(path, parent); });
    ASSERT_TRUE(holder.Await());
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "0");
    EXPECT_FALSE(database.Run("INSERT INTO t VALUES (1)"));
    EXPECT_EQ(database.Lines(), Lines{"error Test DBConnection: database is locked in statement: INSERT INTO "
                                      "t VALUES (?)"});
    // Those that have queued up behind it do not wait as long each: that would take minutes.
    for (int i = 0; i < 60; ++i) {
        EXPECT_FALSE(database.Run("INSERT INTO t VALUES (1)"));
    }
    holder.Tell();
    EXPECT_EQ(holder.Join(), 0);
    EXPECT_TRUE(database.Run("INSERT INTO t VALUES (1)"));
}

}  // namespace
