#include "unit/fleet/collect/database/DatabaseFixture.h"

namespace {

using Kind = SqlFailure::Kind;
using testing::HasSubstr;

class DatabaseTest : public DatabaseFixture {
protected:
    /// What kind of failure `statement` is.
    Kind KindOf(const std::string& statement, const SqlValues& values = {}) {
        EXPECT_FALSE(database_.Run(statement, values, failure_)) << statement;
        EXPECT_NE(failure_.text, "") << statement;
        return failure_.kind;
    }
    std::string One(const std::string& statement, const SqlValues& values = {}) {
        SqlRows rows;
        EXPECT_TRUE(database_.Run(statement, values, rows, failure_)) << failure_.text;
        return rows.empty() || rows[0].empty() ? "nothing" : rows[0][0];
    }
};

TEST(Database, SpeaksToNoServerOverANetworkThatItDoesNotVerify) {
    Database database;
    for (const std::string& parameters :
         {std::string("host=db.example dbname=lum"), std::string("host=localhost,db.example dbname=lum"),
          std::string("hostaddr=192.0.2.1 dbname=lum sslmode=require"),
          std::string("postgresql://db.example/lum")}) {
        SqlFailure failure;
        EXPECT_FALSE(database.Open(parameters, "", failure)) << parameters;
        EXPECT_THAT(failure.text,
                    HasSubstr("would be spoken to without verifying it; give sslmode=verify-full"))
            << parameters;
        EXPECT_FALSE(database.IsOpen());
    }
}

TEST(Database, SaysWhatIsWrongWithItsParameters) {
    Database database;
    SqlFailure failure;
    EXPECT_FALSE(database.Open("colour=red", "", failure));
    EXPECT_THAT(failure.text, HasSubstr("colour"));
    EXPECT_FALSE(database.Open("host=/nowhere dbname=lum", "", failure));
    EXPECT_THAT(failure.text, HasSubstr("/nowhere"));
    EXPECT_EQ(failure.kind, Kind::kServer);
    // A server that is to be verified is tried.
    EXPECT_FALSE(database.Open("host=127.0.0.1 port=1 sslmode=verify-full dbname=lum", "", failure));
    EXPECT_THAT(failure.text, HasSubstr("port 1 failed"));
}

TEST_F(DatabaseTest, TakesOnARoleOrIsNotOpen) {
    ASSERT_EQ(Query("CREATE ROLE somebody"), "");
    ASSERT_TRUE(database_.Open(server_.GetParameters(), "somebody", failure_)) << failure_.text;
    EXPECT_EQ(One("SELECT current_user"), "somebody");
    EXPECT_FALSE(database_.Open(server_.GetParameters(), "no\"body", failure_));
    EXPECT_THAT(failure_.text, HasSubstr("role \"no\"body\" does not exist"));
    EXPECT_FALSE(database_.IsOpen());
}

TEST_F(DatabaseTest, BindsValuesWhateverTheyAre) {
    EXPECT_EQ(One("SELECT $1", {"'; DROP TABLE x; --"}), "'; DROP TABLE x; --");
    EXPECT_EQ(One("SELECT $1::text IS NULL", {std::nullopt}), "t");
    EXPECT_EQ(One("SELECT NULL"), "");
    EXPECT_EQ(One("SELECT ($1::text[])[1]", {ArrayText({"a \"b\" \\ {c}", std::nullopt})}), "a \"b\" \\ {c}");
    EXPECT_EQ(One("SELECT current_setting('TimeZone')"), "UTC");
}

TEST_F(DatabaseTest, TellsWhoseFaultAFailureIs) {
    EXPECT_EQ(KindOf("SELECT 1 / 0"), Kind::kData);
    EXPECT_EQ(KindOf("SELECT $1::integer", {"text"}), Kind::kData);
    EXPECT_EQ(KindOf("SELECT * FROM nothing"), Kind::kLayout);
    ASSERT_EQ(Query("CREATE TABLE t (a integer PRIMARY KEY); INSERT INTO t VALUES (1)"), "");
    EXPECT_EQ(KindOf("INSERT INTO t VALUES (1)"), Kind::kData);
    EXPECT_EQ(KindOf("SELECT no_column FROM t"), Kind::kLayout);
    EXPECT_TRUE(database_.IsOpen());
}

TEST_F(DatabaseTest, AnotherTransactionInTheWayIsWorthAnotherTry) {
    ASSERT_EQ(Query("CREATE TABLE t (a integer)"), "");
    Database other;
    ASSERT_TRUE(other.Open(server_.GetParameters(), "", failure_)) << failure_.text;
    Transaction transaction(other);
    ASSERT_TRUE(transaction.Begin(failure_) && other.RunScript("LOCK TABLE t", failure_)) << failure_.text;
    ASSERT_TRUE(database_.RunScript("SET lock_timeout = '10ms'", failure_)) << failure_.text;
    EXPECT_EQ(KindOf("SELECT * FROM t"), Kind::kRetry);
}

TEST_F(DatabaseTest, AConnectionThatIsGoneIsTheServersFault) {
    ASSERT_EQ(Query("SELECT pg_terminate_backend(pid) FROM pg_stat_activity"
                    " WHERE application_name = 'lumcollect'"),
              "t\n");
    EXPECT_EQ(KindOf("SELECT 1"), Kind::kServer);
    EXPECT_FALSE(database_.IsOpen());
    EXPECT_FALSE(database_.PutCopy("x", failure_));
    EXPECT_EQ(failure_.kind, Kind::kServer);
    EXPECT_FALSE(database_.EndCopy(failure_));
    EXPECT_EQ(failure_.kind, Kind::kServer);
}

TEST_F(DatabaseTest, ACopyThatFailsLeavesTheConnectionAsItWas) {
    ASSERT_EQ(Query("CREATE TABLE t (a integer CHECK (a > 0))"), "");
    EXPECT_FALSE(database_.BeginCopy("COPY nothing FROM STDIN", failure_));
    EXPECT_EQ(failure_.kind, Kind::kLayout);
    ASSERT_TRUE(database_.BeginCopy("COPY t FROM STDIN", failure_)) << failure_.text;
    ASSERT_TRUE(database_.PutCopy("1\nnot a number\n", failure_)) << failure_.text;
    EXPECT_FALSE(database_.EndCopy(failure_));
    EXPECT_EQ(failure_.kind, Kind::kData);
    EXPECT_EQ(One("SELECT count(*) FROM t"), "0");
    ASSERT_TRUE(database_.BeginCopy("COPY t FROM STDIN", failure_) && database_.PutCopy("1\n2\n", failure_) &&
                database_.EndCopy(failure_))
        << failure_.text;
    EXPECT_EQ(One("SELECT count(*) FROM t"), "2");
}

TEST_F(DatabaseTest, ATransactionThatIsNotCommittedHasNotHappened) {
    ASSERT_EQ(Query("CREATE TABLE t (a integer UNIQUE DEFERRABLE INITIALLY DEFERRED)"), "");
    {
        Transaction transaction(database_);
        ASSERT_TRUE(transaction.Begin(failure_) && database_.Run("INSERT INTO t VALUES (1)", {}, failure_));
    }
    EXPECT_EQ(One("SELECT count(*) FROM t"), "0");
    {
        Transaction transaction(database_);
        ASSERT_TRUE(transaction.Begin(failure_) &&
                    database_.Run("INSERT INTO t VALUES (1), (1)", {}, failure_));
        EXPECT_FALSE(transaction.Commit(failure_));
        EXPECT_EQ(failure_.kind, Kind::kData);
    }
    EXPECT_EQ(One("SELECT count(*) FROM t"), "0");
    Transaction transaction(database_);
    ASSERT_TRUE(transaction.Begin(failure_) && database_.Run("INSERT INTO t VALUES (1)", {}, failure_) &&
                transaction.Commit(failure_));
    EXPECT_EQ(Query("SELECT count(*) FROM t"), "1\n");
}

}  // namespace
