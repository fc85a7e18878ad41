#include "unit/fleet/collect/database/DatabaseFixture.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class SchemaTest : public DatabaseFixture {};

TEST_F(SchemaTest, TakesEachStepOnce) {
    EXPECT_FALSE(CheckSchema(database_, failure_));
    EXPECT_THAT(failure_.text, EndsWith("; run lumcollect --setup"));
    int32_t taken = 0;
    ASSERT_TRUE(SetUpSchema(database_, taken, failure_)) << failure_.text;
    EXPECT_EQ(taken, LastSchemaStep());
    EXPECT_TRUE(CheckSchema(database_, failure_)) << failure_.text;
    ASSERT_TRUE(SetUpSchema(database_, taken, failure_)) << failure_.text;
    EXPECT_EQ(taken, 0);
    EXPECT_EQ(Query("SELECT count(*), max(number) FROM lum.schema_step"),
              std::to_string(LastSchemaStep()) + "|" + std::to_string(LastSchemaStep()) + "\n");
}

TEST_F(SchemaTest, SaysHowManyStepsAreMissing) {
    SetUpTables();
    ASSERT_EQ(Query("DELETE FROM lum.schema_step WHERE number > 1"), "");
    EXPECT_FALSE(CheckSchema(database_, failure_));
    EXPECT_EQ(failure_.text, "The database has had 1 of 2 steps; run lumcollect --setup");
    EXPECT_EQ(failure_.kind, SqlFailure::Kind::kServer);
    ASSERT_EQ(Query("DELETE FROM lum.schema_step"), "");
    EXPECT_FALSE(CheckSchema(database_, failure_));
    EXPECT_EQ(failure_.text, "The database has had none of 2 steps; run lumcollect --setup");
}

TEST_F(SchemaTest, IsContentWithStepsOfALaterRelease) {
    SetUpTables();
    ASSERT_EQ(Query("INSERT INTO lum.schema_step (number, title) VALUES (1000, 'later')"), "");
    EXPECT_TRUE(CheckSchema(database_, failure_)) << failure_.text;
}

TEST_F(SchemaTest, AStepThatFailsIsNamedAndLeavesNothing) {
    ASSERT_EQ(Query("CREATE SCHEMA lum; GRANT ALL ON SCHEMA lum TO public; CREATE TABLE lum.gap (a integer)"),
              "");
    int32_t taken = 0;
    EXPECT_FALSE(SetUpSchema(database_, taken, failure_));
    EXPECT_EQ(failure_.text, "Step 2: ERROR:  relation \"gap\" already exists");
    EXPECT_EQ(taken, 1);
    ASSERT_EQ(Query("DROP TABLE lum.gap"), "");
    ASSERT_TRUE(SetUpSchema(database_, taken, failure_)) << failure_.text;
    EXPECT_EQ(taken, 1);
}

TEST_F(SchemaTest, AReaderReadsEverythingAndChangesNothing) {
    SetUpTables();
    ASSERT_EQ(Query("CREATE ROLE anna; GRANT lum_reader TO anna;"
                    " SET ROLE lum_writer; CREATE TABLE lum.later (a integer); CREATE TABLE lum_month.later "
                    "(a integer)"),
              "");
    ASSERT_TRUE(database_.Open(server_.GetParameters(), "anna", failure_)) << failure_.text;
    for (const char* const table : {"lum.batch", "lum.device", "lum.model", "lum.alert", "lum.rejected",
                                    "lum.gap", "lum.later", "lum_month.later"}) {
        EXPECT_TRUE(database_.Run("SELECT * FROM " + std::string(table), {}, failure_)) << failure_.text;
        EXPECT_FALSE(database_.Run("DELETE FROM " + std::string(table), {}, failure_)) << table;
    }
    EXPECT_FALSE(database_.Run("CREATE TABLE lum.own (a integer)", {}, failure_));
    EXPECT_THAT(failure_.text, HasSubstr("permission denied"));
}

TEST_F(SchemaTest, SaysThatARoleMayNotSetItUp) {
    ASSERT_EQ(Query("CREATE ROLE anna"), "");
    ASSERT_TRUE(database_.Open(server_.GetParameters(), "anna", failure_)) << failure_.text;
    int32_t taken = 0;
    EXPECT_FALSE(SetUpSchema(database_, taken, failure_));
    EXPECT_THAT(failure_.text, StartsWith("ERROR:  permission denied"));
}

}  // namespace
