#include "unit/fleet/collect/database/DatabaseFixture.h"

namespace {

using Kind = SqlError::Kind;
using testing::HasSubstr;

class DatabaseTest : public DatabaseFixture {
protected:
    /// What kind of failure `statement` is.
    Kind KindOf(const std::string& statement, const SqlValues& values = {}) {
        const SqlError error = ErrorOf([&] { database_.Run(statement, values); });
        EXPECT_STRNE(error.what(), "") << statement;
        return error.GetKind();
    }
    std::string One(const std::string& statement, const SqlValues& values = {}) {
        const SqlRows rows = database_.Run(statement, values);
        return rows.empty() || rows[0].empty() ? "nothing" : rows[0][0];
    }
};

TEST(Database, SpeaksToNoServerOverANetworkThatItDoesNotVerify) {
    Database database;
    for (const std::string& parameters :
         {std::string("host=db.example dbname=lum"), std::string("host=localhost,db.example dbname=lum"),
          std::string("hostaddr=192.0.2.1 dbname=lum sslmode=require"),
          std::string("host=localhost hostaddr=192.0.2.1"), std::string("host=127.0.0.1.example"),
          std::string("postgresql://db.example/lum")}) {
        EXPECT_THAT(ErrorOf([&] { database.Open(parameters, ""); }).what(),
                    HasSubstr("would be spoken to without verifying it; give sslmode=verify-full"))
            << parameters;
        EXPECT_FALSE(database.IsOpen());
    }
}

TEST(Database, SaysWhatIsWrongWithItsParameters) {
    Database database;
    EXPECT_THAT(ErrorOf([&] { database.Open("colour=red", ""); }).what(), HasSubstr("colour"));
    const SqlError error = ErrorOf([&] { database.Open("host=/nowhere dbname=lum", ""); });
    EXPECT_THAT(error.what(), HasSubstr("/nowhere"));
    EXPECT_EQ(error.GetKind(), Kind::kServer);
    for (const char* const local : {"host=localhost", "host=127.0.0.1", "host=::1", "hostaddr=127.0.0.1"}) {
        EXPECT_THAT(ErrorOf([&] { database.Open(local + std::string(" port=1 dbname=lum"), ""); }).what(),
                    HasSubstr("port 1 failed"))
            << local;
    }
    EXPECT_THAT(ErrorOf([&] { database.Open("host=@nowhere dbname=lum", ""); }).what(), HasSubstr("nowhere"));
    // A server that is to be verified is tried.
    EXPECT_THAT(
        ErrorOf([&] { database.Open("host=127.0.0.1 port=1 sslmode=verify-ca dbname=lum", ""); }).what(),
        HasSubstr("port 1 failed"));
    EXPECT_THAT(
        ErrorOf([&] { database.Open("host=127.0.0.1 port=1 sslmode=verify-full dbname=lum", ""); }).what(),
        HasSubstr("port 1 failed"));
}

TEST(Database, DoesNothingBeforeItIsOpen) {
    Database database;
    EXPECT_EQ(ErrorOf([&] { database.Run("SELECT 1"); }).GetKind(), Kind::kServer);
    EXPECT_THAT(ErrorOf([&] { database.RunScript("SELECT 1"); }).what(), HasSubstr("connection pointer"));
}

TEST_F(DatabaseTest, TakesOnARoleOrIsNotOpen) {
    ASSERT_EQ(Query("CREATE ROLE somebody"), "");
    database_.Open(server_.GetParameters(), "somebody");
    EXPECT_EQ(One("SELECT current_user"), "somebody");
    EXPECT_THAT(ErrorOf([this] { database_.Open(server_.GetParameters(), "no\"body"); }).what(),
                HasSubstr("role \"no\"body\" does not exist"));
    EXPECT_FALSE(database_.IsOpen());
}

TEST_F(DatabaseTest, PassesOverWhatTheServerHasToSayBesides) {
    testing::internal::CaptureStderr();
    database_.RunScript("DO $$ BEGIN RAISE WARNING 'loud'; END $$");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
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
    other.Open(server_.GetParameters(), "");
    const Transaction transaction(other);
    other.RunScript("LOCK TABLE t");
    database_.RunScript("SET lock_timeout = '10ms'");
    EXPECT_EQ(KindOf("SELECT * FROM t"), Kind::kRetry);
}

TEST_F(DatabaseTest, AConnectionThatIsGoneIsTheServersFault) {
    ASSERT_EQ(Query("SELECT pg_terminate_backend(pid) FROM pg_stat_activity"
                    " WHERE application_name = 'lumcollect'"),
              "t\n");
    EXPECT_EQ(KindOf("SELECT 1"), Kind::kServer);
    EXPECT_FALSE(database_.IsOpen());
    EXPECT_EQ(ErrorOf([this] { database_.PutCopy("x"); }).GetKind(), Kind::kServer);
    EXPECT_EQ(ErrorOf([this] { database_.EndCopy(); }).GetKind(), Kind::kServer);
}

TEST_F(DatabaseTest, ACopyThatFailsLeavesTheConnectionAsItWas) {
    ASSERT_EQ(Query("CREATE TABLE t (a integer CHECK (a > 0))"), "");
    EXPECT_EQ(ErrorOf([this] { database_.BeginCopy("COPY nothing FROM STDIN"); }).GetKind(), Kind::kLayout);
    database_.BeginCopy("COPY t FROM STDIN");
    database_.PutCopy("1\nnot a number\n");
    EXPECT_EQ(ErrorOf([this] { database_.EndCopy(); }).GetKind(), Kind::kData);
    EXPECT_EQ(One("SELECT count(*) FROM t"), "0");
    database_.BeginCopy("COPY t FROM STDIN");
    database_.PutCopy("1\n2\n");
    database_.EndCopy();
    EXPECT_EQ(One("SELECT count(*) FROM t"), "2");
}

TEST_F(DatabaseTest, ATransactionThatIsNotCommittedHasNotHappened) {
    ASSERT_EQ(Query("CREATE TABLE t (a integer UNIQUE DEFERRABLE INITIALLY DEFERRED)"), "");
    {
        const Transaction transaction(database_);
        database_.Run("INSERT INTO t VALUES (1)");
    }
    EXPECT_EQ(One("SELECT count(*) FROM t"), "0");
    {
        Transaction transaction(database_);
        database_.Run("INSERT INTO t VALUES (1), (1)");
        EXPECT_EQ(ErrorOf([&] { transaction.Commit(); }).GetKind(), Kind::kData);
    }
    EXPECT_EQ(One("SELECT count(*) FROM t"), "0");
    Transaction transaction(database_);
    database_.Run("INSERT INTO t VALUES (1)");
    transaction.Commit();
    EXPECT_EQ(Query("SELECT count(*) FROM t"), "1\n");
}

}  // namespace
