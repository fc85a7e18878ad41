// What becomes of the files of a database while it is in use.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/database/Database.h"
#include "support/SmallDisk.h"
#include "support/Sqlite.h"
#include "support/TestDatabase.h"
#include "support/shim/FaultPlan.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kInsert = "INSERT INTO t (a) VALUES (1)";

class DatabaseFilesTest : public testing::Test {
protected:
    DatabaseFilesTest() { EXPECT_TRUE(database_.Run("CREATE TABLE t (a)")); }

    [[nodiscard]] std::string At(const char* suffix = "") const {
        return std::string(database_.Path().GetString()) + suffix;
    }
    [[nodiscard]] std::string Count() { return database_.Rows("SELECT count(*) FROM t"); }
    void ExpectOneRefusal() {
        EXPECT_FALSE(database_.Run(kInsert));
        EXPECT_THAT(database_.Lines(),
                    ElementsAre("error Test DBConnection: the database '" + At() +
                                "' was removed or replaced while it was in use in statement: INSERT INTO t "
                                "(a) VALUES (?)"));
    }

    TestDatabase database_;
};

TEST_F(DatabaseFilesTest, RefusesAChangeOnceTheDatabaseIsGoneAndOpensWhatIsThere) {
    EXPECT_TRUE(database_.Run(kInsert));
    const uint32_t opened = database_.Pool().GetOpenCount();
    fs::rename(At(), At(".away"));
    ExpectOneRefusal();
    fs::rename(At(".away"), At());
    EXPECT_TRUE(database_.Run(kInsert));
    EXPECT_EQ(Count(), "2");
    EXPECT_EQ(database_.Pool().GetOpenCount(), opened + 1);
}

TEST_F(DatabaseFilesTest, RefusesAChangeOfAnyShapeOnceTheDatabaseIsGone) {
    fs::rename(At(), At(".away"));
    EXPECT_FALSE(database_.Run("CREATE TABLE other (a)"));
    EXPECT_THAT(database_.Lines(), ElementsAre(HasSubstr("was removed or replaced while it was in use")));
    fs::rename(At(".away"), At());
    EXPECT_TRUE(database_.Run("CREATE TABLE other (a)"));
}

TEST_F(DatabaseFilesTest, UsesTheDatabaseThatHasTakenThePlace) {
    const LumString other = database_.Directory().At("other");
    Sqlite(other.GetString()).Run("PRAGMA journal_mode = WAL; CREATE TABLE t (a); INSERT INTO t VALUES (7)");
    EXPECT_TRUE(database_.Run("INSERT INTO t VALUES ('kept')"));
    fs::rename(At(), At(".away"));
    fs::rename(other.GetString(), At());
    ExpectOneRefusal();
    EXPECT_TRUE(database_.Run(kInsert));
    EXPECT_EQ(Count(), "2");
    // What lay in the log went to the database that it belongs to.
    EXPECT_EQ(Sqlite(At(".away")).Rows("SELECT a FROM t"), "kept");
    EXPECT_EQ(database_.Rows("pragma integrity_check"), "ok");
}

TEST_F(DatabaseFilesTest, KeepsWhatLiesInALogThatIsTakenAway) {
    for (const char* const file : {"-wal", "-shm"}) {
        EXPECT_TRUE(database_.Run(kInsert));
        fs::remove(At(file));
        EXPECT_FALSE(database_.Run(kInsert));
        EXPECT_TRUE(database_.Run(kInsert));
    }
    EXPECT_EQ(Count(), "4");
    EXPECT_EQ(database_.Rows("pragma integrity_check"), "ok");
}

TEST_F(DatabaseFilesTest, NoticesItInADirectoryThatHadNotChangedForLong) {
    for (const char* const file : {"", "-wal", "-shm"}) {
        EXPECT_TRUE(database_.Run(kInsert));
        fs::last_write_time(fs::path(At()).parent_path(),
                            fs::file_time_type::clock::now() - std::chrono::hours(1));
        EXPECT_TRUE(database_.Run(kInsert));
        EXPECT_TRUE(database_.Run(kInsert));
        fs::rename(At(file), At(".away"));
        EXPECT_FALSE(database_.Run(kInsert)) << file;
        if (*file == '\0') {
            fs::rename(At(".away"), At());
        }
    }
    EXPECT_TRUE(database_.Run(kInsert));
    EXPECT_EQ(Count(), "10");
}

TEST_F(DatabaseFilesTest, NoticesItWithinOneTickOfTheDirectorysTime) {
    EXPECT_TRUE(database_.Run(kInsert));
    const auto tick = fs::last_write_time(database_.Directory().Path());
    EXPECT_TRUE(database_.Run(kInsert));
    fs::rename(At(), At(".away"));
    fs::last_write_time(database_.Directory().Path(), tick);
    EXPECT_FALSE(database_.Run(kInsert));
}

TEST_F(DatabaseFilesTest, NoticesADirectoryThatHasTakenThePlace) {
    const fs::path place = database_.Directory() / "place";
    fs::create_directory(place);
    database_.Select(LumString((place / "db").string()));
    EXPECT_TRUE(database_.Run("CREATE TABLE t (a)"));
    fs::last_write_time(place, fs::file_time_type::clock::now() - std::chrono::hours(1));
    EXPECT_TRUE(database_.Run(kInsert));
    fs::rename(place, place.string() + ".away");
    EXPECT_FALSE(database_.Run(kInsert));
}

TEST_F(DatabaseFilesTest, RefusesTheCommitOfATransactionWhoseDatabaseIsGone) {
    {
        DBConnection connection(database_.Pool());
        EXPECT_TRUE(connection.BeginTransaction());
        EXPECT_NE(connection.Query(kInsert), nullptr);
        fs::rename(At(), At(".away"));
        EXPECT_FALSE(connection.CommitTransaction());
        EXPECT_TRUE(connection.RollbackTransaction());
    }
    fs::rename(At(".away"), At());
    EXPECT_EQ(Count(), "0");
    EXPECT_EQ(database_.Lines().size(), 1U);
}

TEST_F(DatabaseFilesTest, TakesFromOthersWhatIsThereAlready) {
    const LumString path = database_.Directory().At("open.sqlite3");
    const Sqlite other(path.GetString());
    other.Run("PRAGMA journal_mode = WAL; CREATE TABLE t (a)");
    const std::string name = path.GetString();
    for (const char* const suffix : {"", "-wal", "-shm"}) {
        ASSERT_EQ(chmod((name + suffix).c_str(), 0666), 0);
    }
    database_.Select(path);
    EXPECT_TRUE(database_.Run(kInsert));
    for (const char* const suffix : {"", "-wal", "-shm"}) {
        struct stat status {};
        ASSERT_EQ(stat((name + suffix).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0600U) << suffix;
    }
}

/// What the action was told, in order.
std::vector<std::string> told;

TEST_F(DatabaseFilesTest, TellsOfChangesThatTheMachineFailsAndOfTheirEnd) {
    told.clear();
    database_.Pool().SetChangeAction([](const LumString& reason) { told.emplace_back(reason.View()); });
    EXPECT_TRUE(database_.Run(kInsert));
    EXPECT_FALSE(database_.Run("INSERT INTO nowhere VALUES (1)"));
    EXPECT_TRUE(told.empty());
    fs::rename(At(), At(".away"));
    EXPECT_FALSE(database_.Run(kInsert));
    fs::rename(At(".away"), At());
    EXPECT_EQ(Count(), "1");
    EXPECT_EQ(told.size(), 1U);
    EXPECT_TRUE(database_.Run(kInsert));
    EXPECT_TRUE(database_.Run(kInsert));
    EXPECT_THAT(told, ElementsAre(HasSubstr("was removed or replaced"), ""));
}

TEST(DatabaseOnASmallDisk, GivesTheRoomOfAnOutgrownLogBack) {
    const SmallDisk disk(std::size_t{6} << 20U);
    if (!disk.IsThere()) {
        GTEST_SKIP() << "takes the rights of root";
    }
    TestDatabase database;
    database.Select(LumString(disk / "test.sqlite3"));
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    {
        DBConnection connection(database.Pool());
        EXPECT_TRUE(connection.CutLogBack());
    }
    // Far more than there is room for: the log takes all of the disk before that fails.
    EXPECT_FALSE(
        database.Run("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000) "
                     "INSERT INTO t SELECT zeroblob(1000) FROM n"));
    EXPECT_TRUE(database.Run(kInsert));
    EXPECT_GT(disk.Free(), std::size_t{5} << 20U);
    EXPECT_EQ(database.Rows("SELECT count(*) FROM t"), "1");
}

TEST(DatabaseOnASmallDisk, TakesTheLogInBeforeAChangeIsRefused) {
    const SmallDisk disk(std::size_t{16} << 20U);
    if (!disk.IsThere()) {
        GTEST_SKIP() << "takes the rights of root";
    }
    TestDatabase database;
    database.Select(LumString(disk / "test.sqlite3"));
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    EXPECT_TRUE(
        database.Run("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 1200) "
                     "INSERT INTO t SELECT zeroblob(4000) FROM n"));
    {
        DBConnection connection(database.Pool());
        EXPECT_TRUE(connection.CutLogBack());
    }
    EXPECT_TRUE(database.Run("UPDATE t SET a = randomblob(4000)"));  // all of them lie in the log as well
    disk.Fill();
    EXPECT_TRUE(database.Run(kInsert)) << "what the log holds has its place in the database";
    EXPECT_THAT(database.Lines(), IsEmpty());
}

TEST(DatabaseOnASmallDisk, HasTheWholeIndexOfTheLogOnTheDisk) {
    const SmallDisk disk(std::size_t{4} << 20U, SmallDisk::Kind::kSmallBlocks);
    if (!disk.IsThere()) {
        GTEST_SKIP() << "takes the rights of root and a loop device";
    }
    TestDatabase database;
    database.Select(LumString(disk / "test.sqlite3"));
    EXPECT_TRUE(database.Run("CREATE TABLE t (a)"));
    struct stat status {};
    ASSERT_EQ(stat((disk / "test.sqlite3-shm").c_str(), &status), 0);
    // A hole in it would end the process once the disk is full.
    EXPECT_GE(status.st_blocks * 512, status.st_size);
}

TEST(DatabaseOnASmallDisk, LivesOnAFullDiskOfSmallBlocks) {
    for (const std::size_t left : {0U, 2048U, 4096U, 8192U, 12288U, 20480U, 40960U}) {
        const SmallDisk disk(std::size_t{4} << 20U, SmallDisk::Kind::kSmallBlocks);
        if (!disk.IsThere()) {
            GTEST_SKIP() << "takes the rights of root and a loop device";
        }
        const LumString path(disk / "test.sqlite3");
        Sqlite(path.GetString()).Run("PRAGMA journal_mode = WAL; CREATE TABLE t (a)");
        disk.Fill(left);
        TestDatabase database;
        database.Select(path);
        static_cast<void>(database.Run(kInsert));  // there may just be room for it
        disk.Clear();
        EXPECT_TRUE(database.Run(kInsert)) << left;
    }
}

TEST_F(DatabaseFilesTest, CutsTheLogBackToNothing) {
    EXPECT_TRUE(database_.Run(kInsert));
    EXPECT_GT(fs::file_size(At("-wal")), 0U);
    DBConnection connection(database_.Pool());
    EXPECT_TRUE(connection.CutLogBack());
    EXPECT_EQ(fs::file_size(At("-wal")), 0U);
    EXPECT_EQ(Count(), "1");
}

TEST_F(DatabaseFilesTest, LetsAWatchSeeAndEndAStatement) {
    ASSERT_TRUE(
        database_.Run("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 100000) "
                      "INSERT INTO t SELECT hex(randomblob(20)) FROM n"));
    DBConnection connection(database_.Pool());
    uint32_t looks = 0;
    uint32_t furthest = 0;
    EXPECT_NE(connection.QueryWatched("pragma integrity_check",
                                      [&](uint32_t percent) {
                                          ++looks;
                                          furthest = std::max(furthest, percent);
                                          return true;
                                      }),
              nullptr);
    EXPECT_GT(looks, 3U);
    EXPECT_LE(furthest, 99U);
    EXPECT_EQ(connection.QueryWatched("vacuum", [](uint32_t /*percent*/) { return false; }), nullptr);
    EXPECT_TRUE(database_.Lines().empty());
    EXPECT_EQ(Count(), "100000");
}

/// The first step of a check reads every page, and SQLite asks nobody on the way.
TEST_F(DatabaseFilesTest, LetsAWatchEndAStepThatReadsEverything) {
    ASSERT_TRUE(
        database_.Run("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 3000) INSERT "
                      "INTO t SELECT printf('%.4000c', 'x') FROM n"));
    FaultPlan plan;
    plan.Watch(At());
    plan.delayMs = 1;
    FaultShimUse(&plan);
    database_.Pool().SetDatabase("SQLITE23", "", database_.Path(), "", "", 0);
    DBConnection connection(database_.Pool());
    plan.Arm(FaultPlan::Kind::kSlow, 1, FaultPlan::kForEver);
    EXPECT_EQ(connection.QueryWatched("pragma integrity_check", [](uint32_t /*percent*/) { return false; }),
              nullptr);
    EXPECT_LT(plan.Disarm(), 2000U);
    FaultShimUse(nullptr);
    EXPECT_EQ(Count(), "3000");
}

/// Where a file cannot be opened for writing, SQLite opens it for reading, and would leave it at that.
TEST_F(DatabaseFilesTest, IsWrittenAgainWhicheverFileCouldNotBeOpenedOnce) {
    FaultPlan plan;
    plan.Watch(At());
    FaultShimUse(&plan);
    uint64_t nth = 0;
    do {
        ++nth;
        database_.Pool().SetDatabase("SQLITE23", "", database_.Path(), "", "", 0);
        plan.Arm(FaultPlan::Kind::kNoFiles, nth);
        static_cast<void>(database_.Rows("SELECT count(*) FROM t"));
        static_cast<void>(plan.Disarm());
        EXPECT_TRUE(database_.Run(kInsert)) << nth;
        EXPECT_EQ(Count(), std::to_string(nth)) << nth;
    } while (plan.count >= nth);
    FaultShimUse(nullptr);
    EXPECT_GT(nth, 3U);
}

}  // namespace
