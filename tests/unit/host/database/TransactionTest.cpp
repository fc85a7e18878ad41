#include <new>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/database/Transaction.h"
#include "support/TestDatabase.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class TransactionTest : public testing::Test {
protected:
    bool Run(const std::vector<LumString>& statements) {
        DBConnection connection(database_.Pool());
        return RunInTransaction(connection, statements);
    }
    [[nodiscard]] std::string Tables() {
        return database_.Rows("SELECT name FROM sqlite_master ORDER BY name");
    }

    TestDatabase database_;
};

TEST_F(TransactionTest, CommitsWhatSucceedsAsAWhole) {
    EXPECT_TRUE(Run({"CREATE TABLE T (a)", "INSERT INTO T VALUES (1)", "INSERT INTO T VALUES (2)"}));
    EXPECT_EQ(database_.Rows("SELECT count(*) FROM T"), "2");
    EXPECT_THAT(database_.Lines(), IsEmpty());
}

TEST_F(TransactionTest, RollsBackAtTheFirstFailure) {
    EXPECT_FALSE(Run({"CREATE TABLE T (a)", "INSERT INTO Nowhere VALUES (1)", "CREATE TABLE U (a)"}));
    EXPECT_EQ(Tables(), "");
    EXPECT_THAT(database_.Lines(),
                ElementsAre(StartsWith("error Test DBConnection: no such table: Nowhere")));
}

TEST_F(TransactionTest, RollsBackWhereTheCommitFails) {
    DBConnection connection(database_.Pool());
    // A reference that is only looked at when the transaction ends.
    ASSERT_NE(connection.Query("PRAGMA foreign_keys = ON"), nullptr);
    ASSERT_NE(connection.Query("CREATE TABLE P (id INTEGER PRIMARY KEY)"), nullptr);
    ASSERT_NE(connection.Query("CREATE TABLE C (p REFERENCES P (id) DEFERRABLE INITIALLY DEFERRED)"),
              nullptr);
    EXPECT_FALSE(RunInTransaction(connection, {"INSERT INTO C VALUES (7)"}));
    EXPECT_EQ(database_.Rows("SELECT count(*) FROM C"), "0");
    EXPECT_TRUE(RunInTransaction(connection, {"INSERT INTO P VALUES (7)", "INSERT INTO C VALUES (7)"}));
}

TEST_F(TransactionTest, RunsNothingWhereNoTransactionCanBegin) {
    DBConnection connection(database_.Pool());
    ASSERT_TRUE(connection.BeginTransaction());
    EXPECT_FALSE(RunInTransaction(connection, {"CREATE TABLE T (a)"}));
    EXPECT_TRUE(connection.CommitTransaction());
    EXPECT_EQ(Tables(), "");
}

TEST_F(TransactionTest, RollsBackWhatTheBodyGivesUp) {
    DBConnection connection(database_.Pool());
    EXPECT_FALSE(
        InTransaction(connection, [&] { return connection.Query("CREATE TABLE T (a)") == nullptr; }));
    EXPECT_EQ(Tables(), "");
}

TEST_F(TransactionTest, RollsBackBeforeWhatTheBodyThrowsLeavesIt) {
    DBConnection connection(database_.Pool());
    const auto fail = [&]() -> bool {
        static_cast<void>(connection.Query("CREATE TABLE T (a)"));
        throw std::bad_alloc();
    };
    EXPECT_THROW(static_cast<void>(InTransaction(connection, fail)), std::bad_alloc);
    // On the same connection: what is stored next must not be part of what was given up.
    ASSERT_NE(connection.Query("CREATE TABLE U (a)"), nullptr);
    EXPECT_EQ(Tables(), "U");
}

}  // namespace
