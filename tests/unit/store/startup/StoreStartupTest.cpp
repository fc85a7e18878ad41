#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/core/LumHealth.h"
#include "model/ModelElement.h"
#include "store/DatabaseScope.h"
#include "store/DatabaseSetup.h"
#include "store/Paths.h"
#include "store/startup/StoreStartup.h"
#include "support/LinkedModule.h"
#include "support/SmallDisk.h"
#include "support/StopRequest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace fs = std::filesystem;

class StoreStartupTest : public testing::Test, protected LinkedModule {
protected:
    StoreStartupTest() {
        StartWith(kLogon);
        KeepErrorsFromAlerts();
        Log().Forget();
    }
    /// Starts the module once more, as a new process would.
    static void Restart() {
        for (std::shared_ptr<Model_t> model; ModelCollection.GetAt(0, model);) {
            ModelCollection.Remove(model);
        }
        Initialise();
        KeepErrorsFromAlerts();
    }
    [[nodiscard]] std::string Database(const char* suffix = "") const {
        return Directory() / (std::string(kDatabase) + suffix);
    }
    [[nodiscard]] static uint32_t CreateOne() { return Create("Logon", R"({"User":"ann"})"); }
};

TEST_F(StoreStartupTest, HasNothingToMakeGoodAfterAGoodStart) {
    EXPECT_TRUE(KeepStoreUp());
    EXPECT_THAT(Said(), IsEmpty());
    EXPECT_THAT(LumHealthReasons(), IsEmpty());
}

TEST_F(StoreStartupTest, LoadsTheModelsOnceTheDatabaseCanBeRead) {
    DatabasePool.SetDatabase("SQLITE23", "", "", "", "", 0);
    fs::rename(Database(), Database(".away"));
    fs::create_directory(Database());
    Restart();
    EXPECT_EQ(ModelCollection.GetCount(), 0U);
    EXPECT_THAT(LumHealthReasons(),
                Contains(LumString("The registered models could not be read from the database.")));
    EXPECT_FALSE(KeepStoreUp());

    Log().Forget();
    EXPECT_EQ(Call("EventLogManagerReloadModels", "{}").status, 0U);
    EXPECT_THAT(Said(),
                Contains(HasSubstr("Dropped definitions wait, as the registered models are not loaded")));
    EXPECT_THAT(Said(), Not(Contains(HasSubstr("with success"))));

    fs::remove(Database());
    fs::rename(Database(".away"), Database());
    EXPECT_TRUE(KeepStoreUp());
    EXPECT_TRUE(ModelCollection.Contains("Logon"));
    EXPECT_EQ(CreateOne(), 0U);
    EXPECT_THAT(LumHealthReasons(), IsEmpty());
}

TEST_F(StoreStartupTest, LeavesDroppedDefinitionsAloneWhileAnUpgradeIsOutstanding) {
    Change("UPDATE DatabaseInformation SET FieldValue = 5 WHERE FieldName = 'DatabaseVersionMajor'");
    const std::string copy = Directory() / (std::string(kData) + "/EventLogManager-5.0.0.0.sqlite3");
    fs::create_directory(copy);  // so that none can be made
    Restart();
    Drop({.name = "Another", .params = {{"User"}}});
    Log().Forget();
    EXPECT_FALSE(KeepStoreUp());
    EXPECT_EQ(Call("EventLogManagerReloadModels", "{}").status, 0U);
    EXPECT_THAT(Said(), Contains(HasSubstr("Dropped definitions wait")));
    EXPECT_FALSE(ModelCollection.Contains("Another"));
    fs::remove(copy);
    Restart();
    EXPECT_TRUE(KeepStoreUp());
    EXPECT_TRUE(ModelCollection.Contains("Another"));
}

TEST_F(StoreStartupTest, LoadsADefinitionOnceItCanBeRead) {
    std::shared_ptr<Model_t> model;
    ASSERT_TRUE(ModelCollection.Get("Logon", model));
    const std::string filed(FiledDirectory("Logon", model->GetChecksum()).View());
    fs::rename(filed, filed + ".away");
    Restart();
    EXPECT_EQ(ModelCollection.GetCount(), 0U);
    fs::rename(filed + ".away", filed);
    EXPECT_TRUE(KeepStoreUp());
    EXPECT_TRUE(ModelCollection.Contains("Logon"));
}

TEST_F(StoreStartupTest, RegistersItsModelsInADatabaseThatIsMadeAnew) {
    EXPECT_EQ(CreateOne(), 0U);
    fs::remove(Database());
    EXPECT_NE(CreateOne(), 0U);
    EXPECT_THAT(LumHealthReasons(),
                Contains(LumString(("The last change of the database failed: the database '" + Database() +
                                    "' was removed or replaced while it was in use.")
                                       .c_str())));
    EXPECT_TRUE(KeepStoreUp());
    EXPECT_THAT(Said(), Contains("warning KeepStoreUp: Model 'Logon' is not in the database that was opened "
                                 "and is registered there"));
    EXPECT_EQ(CreateOne(), 0U);
    EXPECT_EQ(Rows("SELECT count(*) FROM Event_Logon"), "1");
    EXPECT_THAT(LumHealthReasons(), IsEmpty());
}

TEST_F(StoreStartupTest, TakesOverWhatARestoredDatabaseSaysOfItsModels) {
    Change(
        "UPDATE RegisteredModel SET RM_Enabled = 0, RM_LastUploadTimestamp = 7, RM_LastAggregationTimestamp "
        "= 9; "
        "PRAGMA wal_checkpoint(TRUNCATE)");
    fs::copy_file(Database(), Database(".restored"));
    fs::rename(Database(".restored"), Database());
    EXPECT_NE(Create("Logon", R"({"User":"lost"})"), 0U);
    EXPECT_TRUE(KeepStoreUp());
    std::shared_ptr<Model_t> model;
    ASSERT_TRUE(ModelCollection.Get("Logon", model));
    EXPECT_FALSE(model->IsEnabled());
    EXPECT_EQ(model->GetLastUploadTime(), 7);
    EXPECT_EQ(model->GetLastAggregationTime(), 9);
}

TEST_F(StoreStartupTest, GivesUpAModelWhoseRowSaysSomethingElse) {
    Change("PRAGMA wal_checkpoint(TRUNCATE)");
    fs::copy_file(Database(), Database(".restored"));
    Sqlite(Database(".restored")).Run("UPDATE RegisteredModel SET RM_Checksum = 'other'");
    fs::rename(Database(".restored"), Database());
    EXPECT_NE(CreateOne(), 0U);
    {
        const StopRequest stop;
        static_cast<void>(KeepStoreUp());  // the next turn goes on with it
    }
    EXPECT_FALSE(ModelCollection.Contains("Logon"));
    static_cast<void>(KeepStoreUp());  // says that the definition is another one
    EXPECT_FALSE(ModelCollection.Contains("Logon"));
    EXPECT_EQ(Log().Count("The database was opened anew; it holds 1 registered models"), 2U);
}

TEST_F(StoreStartupTest, GivesUpAModelThatTheNewDatabaseDoesNotTake) {
    fs::remove(Database());
    EXPECT_NE(CreateOne(), 0U);
    Sqlite(Database()).Run("CREATE VIEW Event_Logon AS SELECT 1");
    static_cast<void>(KeepStoreUp());  // says that a table cannot be made
    EXPECT_FALSE(ModelCollection.Contains("Logon"));
}

TEST_F(StoreStartupTest, TriesAgainWhereTheRowsOfTheNewDatabaseCannotBeRead) {
    Change("PRAGMA wal_checkpoint(TRUNCATE)");
    fs::copy_file(Database(), Database(".restored"));
    fs::rename(Database(".restored"), Database());
    EXPECT_NE(CreateOne(), 0U);
    Change(
        "ALTER TABLE RegisteredModel RENAME TO Kept; CREATE VIEW RegisteredModel AS SELECT * FROM nowhere");
    static_cast<void>(KeepStoreUp());  // the next turn tries again
    EXPECT_EQ(Log().Count("The database was opened anew"), 0U);
    EXPECT_TRUE(ModelCollection.Contains("Logon"));
    Change("DROP VIEW RegisteredModel; ALTER TABLE Kept RENAME TO RegisteredModel");
    EXPECT_TRUE(KeepStoreUp());
    EXPECT_EQ(Log().Count("The database was opened anew; it holds 1 registered models"), 1U);
    EXPECT_EQ(CreateOne(), 0U);
}

TEST_F(StoreStartupTest, LeavesADatabaseUncompactedWithoutRoomForThat) {
    const SmallDisk disk(std::size_t{8} << 20U);
    if (!disk.IsThere()) {
        GTEST_SKIP() << "takes the rights of root";
    }
    DatabasePool.SetDatabase("SQLITE23", "", "", "", "", 0);
    fs::copy_file(Database(), disk / "store.sqlite3");
    DatabasePath = LumString(disk / "store.sqlite3");
    DataDirectory = LumString(disk / "");
    ASSERT_EQ(
        Sqlite(disk / "store.sqlite3")
            .Try("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 3000) INSERT INTO "
                 "Event_Logon (E_Date, E_DeviceId, E_GroupId, C_User) SELECT i, 0, 0, hex(zeroblob(500)) "
                 "FROM n; PRAGMA wal_checkpoint(TRUNCATE)"),
        SQLITE_OK);
    Log().Forget();
    InitializeDatabase();
    EXPECT_THAT(Said(),
                ElementsAre(HasSubstr("warning InitializeDatabase: The database is not compacted: ")));
    EXPECT_EQ(CreateOne(), 0U);
    EXPECT_GT(disk.Free(), std::size_t{3} << 20U);
}

}  // namespace
