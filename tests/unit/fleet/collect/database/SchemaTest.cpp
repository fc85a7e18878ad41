#include "unit/fleet/collect/database/DatabaseFixture.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class SchemaTest : public DatabaseFixture {
protected:
    SqlError CheckFails() {
        return ErrorOf([this] { CheckSchema(database_); });
    }
    SqlError SetUpFails() {
        return ErrorOf([this] { static_cast<void>(SetUpSchema(database_)); });
    }
};

TEST_F(SchemaTest, TakesEachStepOnce) {
    EXPECT_THAT(CheckFails().what(), EndsWith("; run lumcollect --setup"));
    EXPECT_EQ(SetUpSchema(database_), LastSchemaStep());
    EXPECT_NO_THROW(CheckSchema(database_));
    EXPECT_EQ(SetUpSchema(database_), 0);
    EXPECT_EQ(Query("SELECT count(*), max(number) FROM lum.schema_step"),
              std::to_string(LastSchemaStep()) + "|" + std::to_string(LastSchemaStep()) + "\n");
}

TEST_F(SchemaTest, SaysHowManyStepsAreMissing) {
    SetUpTables();
    ASSERT_EQ(Query("DELETE FROM lum.schema_step WHERE number > 1"), "");
    EXPECT_STREQ(CheckFails().what(), "The database has had 1 of 2 steps; run lumcollect --setup");
    EXPECT_EQ(CheckFails().GetKind(), SqlError::Kind::kServer);
    ASSERT_EQ(Query("DELETE FROM lum.schema_step"), "");
    EXPECT_STREQ(CheckFails().what(), "The database has had none of 2 steps; run lumcollect --setup");
}

TEST_F(SchemaTest, IsContentWithStepsOfALaterRelease) {
    SetUpTables();
    ASSERT_EQ(Query("INSERT INTO lum.schema_step (number, title) VALUES (1000, 'later')"), "");
    EXPECT_NO_THROW(CheckSchema(database_));
}

TEST_F(SchemaTest, AStepThatFailsIsNamedAndLeavesNothing) {
    ASSERT_EQ(Query("CREATE SCHEMA lum; GRANT ALL ON SCHEMA lum TO public; CREATE TABLE lum.gap (a integer)"),
              "");
    EXPECT_STREQ(SetUpFails().what(), "Step 2: ERROR:  relation \"gap\" already exists");
    EXPECT_EQ(Query("SELECT number FROM lum.schema_step"), "1\n");
    ASSERT_EQ(Query("DROP TABLE lum.gap"), "");
    EXPECT_EQ(SetUpSchema(database_), 1);
}

TEST_F(SchemaTest, AReaderReadsEverythingAndChangesNothing) {
    SetUpTables();
    ASSERT_EQ(Query("CREATE ROLE anna; GRANT lum_reader TO anna;"
                    " SET ROLE lum_writer; CREATE TABLE lum.later (a integer); CREATE TABLE lum_month.later "
                    "(a integer)"),
              "");
    database_.Open(server_.GetParameters(), "anna");
    for (const char* const table : {"lum.batch", "lum.device", "lum.model", "lum.alert", "lum.rejected",
                                    "lum.gap", "lum.later", "lum_month.later"}) {
        EXPECT_NO_THROW(database_.Run("SELECT * FROM " + std::string(table)));
        EXPECT_THROW(database_.Run("DELETE FROM " + std::string(table)), SqlError) << table;
    }
    EXPECT_THAT(ErrorOf([this] { database_.Run("CREATE TABLE lum.own (a integer)"); }).what(),
                HasSubstr("permission denied"));
}

TEST_F(SchemaTest, SaysThatARoleMayNotSetItUp) {
    ASSERT_EQ(Query("CREATE ROLE anna"), "");
    database_.Open(server_.GetParameters(), "anna");
    EXPECT_THAT(SetUpFails().what(), StartsWith("ERROR:  permission denied"));
}

}  // namespace
