#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/core/LumHealth.h"
#include "store/Paths.h"
#include "store/startup/UpgradeRecord.h"
#include "support/FaultVfs.h"
#include "support/LinkedModule.h"
#include "support/ResourceLimit.h"
#include "support/SmallDisk.h"
#include "support/Sqlite.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

constexpr const char* kNotUpgraded =
    "error UpgradeRecord: The database is not upgraded and stays at version 6.1.9.0; the next start tries "
    "again";

class UpgradeRecordTest : public testing::Test {
protected:
    /// Starts the module with one model and takes its database back to a version.
    void Start(int major, int minor, int revision) {
        host_.StartWith(kLogon);
        SetField("DatabaseVersionMajor", major);
        SetField("DatabaseVersionMinor", minor);
        SetField("DatabaseRevision", revision);
        host_.Log().Forget();
    }
    void Change(const std::string& sql) const { host_.Change(sql); }
    void SetField(const std::string& field, int value) const {
        Change("UPDATE DatabaseInformation SET FieldValue = " + std::to_string(value) +
               " WHERE FieldName = '" + field + "'");
    }
    [[nodiscard]] std::string Path(const std::string& name) const {
        return host_.Directory() / ("data/EventLogManager/" + name);
    }
    [[nodiscard]] std::vector<std::string> Said() const { return host_.Said(); }

    FaultVfs faults_;
    LinkedModule host_;
};

TEST_F(UpgradeRecordTest, SaysNothingOfANewDatabase) {
    host_.StartWith(kLogon);
    EXPECT_EQ(host_.Log().Count("print UpgradeRecord"), 0U);
    EXPECT_FALSE(fs::exists(Path("EventLogManager-6.2.0.0.sqlite3")));
}

TEST_F(UpgradeRecordTest, SaysNothingOfACurrentDatabase) {
    Start(6, 2, 0);
    UpgradeRecord record;
    EXPECT_TRUE(record.Begin());
    record.End();
    EXPECT_THAT(Said(), IsEmpty());
    EXPECT_FALSE(fs::exists(Path("EventLogManager-6.2.0.0.sqlite3")));
}

TEST_F(UpgradeRecordTest, SaysWhatWasFoundAndReached) {
    Start(6, 1, 9);
    UpgradeRecord record;
    EXPECT_TRUE(record.Begin());
    SetField("DatabaseVersionMajor", 12);
    record.End();
    EXPECT_THAT(Said(), ElementsAre("print UpgradeRecord: Found a database of version 6.1.9.0, which is "
                                    "upgraded",
                                    "print UpgradeRecord: The database of before the upgrade is kept in '" +
                                        Path("EventLogManager-6.1.9.0.sqlite3") + "'",
                                    "print UpgradeRecord: The database is at version 12.1.9.0"));
}

TEST_F(UpgradeRecordTest, CopiesTheDatabaseWithWhatIsInItsLog) {
    Start(6, 1, 9);
    ASSERT_EQ(LinkedModule::Create("Logon", R"({"User":"ann"})"), 0U);
    EXPECT_TRUE(UpgradeRecord().Begin());
    const std::string copy = Path("EventLogManager-6.1.9.0.sqlite3");
    const Sqlite database(copy);
    EXPECT_EQ(database.Rows("SELECT C_User FROM Event_Logon"), "ann");
    EXPECT_EQ(database.Rows("PRAGMA integrity_check"), "ok");
    struct stat status {};
    ASSERT_EQ(stat(copy.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_FALSE(fs::exists(copy + ".unfinished"));
}

TEST_F(UpgradeRecordTest, CopiesADatabaseWhoseOlderModuleIsStillToBeTakenOver) {
    Start(6, 2, 0);
    Change("UPDATE DatabaseInformation SET FieldValue = '0' WHERE FieldName = 'EventManagerMerge'");
    EXPECT_TRUE(UpgradeRecord().Begin());
    EXPECT_TRUE(fs::exists(Path("EventLogManager-6.2.0.0.sqlite3")));
}

TEST_F(UpgradeRecordTest, KeepsTheDefinitionsThatAreReplaced) {
    Start(6, 1, 9);
    const std::string filed = "_EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_/0123/old.xml";
    fs::create_directories(fs::path(Path("models/" + filed)).parent_path());
    host_.Directory().Write("data/EventLogManager/models/" + filed, "<MODEL/>");
    fs::create_directory(Path("models/_EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_/0123/inner"));
    host_.Directory().Write("data/EventLogManager/models/_EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_/note",
                            "x");
    EXPECT_TRUE(UpgradeRecord().Begin());
    EXPECT_EQ(ReadWholeFile(Path("EventLogManager-6.1.9.0-models/" + filed)), "<MODEL/>");
    EXPECT_FALSE(fs::exists(Path("EventLogManager-6.1.9.0-models/Logon")));
}

TEST_F(UpgradeRecordTest, KeepsTheFirstCopyAndAnnouncesNoUpgradeThatIsTriedAgain) {
    Start(6, 1, 9);
    const std::string copy = Path("EventLogManager-6.1.9.0.sqlite3");
    host_.Directory().Write("data/EventLogManager/EventLogManager-6.1.9.0.sqlite3", "first");
    UpgradeRecord record;
    EXPECT_TRUE(record.Begin());
    record.End();
    EXPECT_EQ(ReadWholeFile(copy), "first");
    EXPECT_THAT(Said(), IsEmpty());
}

TEST_F(UpgradeRecordTest, MakesACopyThatWasNotFinishedAnew) {
    Start(6, 1, 9);
    host_.Directory().Write("data/EventLogManager/EventLogManager-6.1.9.0.sqlite3.unfinished", "half");
    EXPECT_TRUE(UpgradeRecord().Begin());
    const Sqlite database(Path("EventLogManager-6.1.9.0.sqlite3"));
    EXPECT_EQ(database.Rows("PRAGMA integrity_check"), "ok");
    EXPECT_FALSE(fs::exists(Path("EventLogManager-6.1.9.0.sqlite3.unfinished")));
}

TEST_F(UpgradeRecordTest, WarnsWhereSomethingIsInTheWayOfTheCopy) {
    Start(6, 1, 9);
    const std::string copy = Path("EventLogManager-6.1.9.0.sqlite3");
    for (const std::string& path : {copy, copy + ".unfinished"}) {
        host_.Log().Forget();
        fs::create_directories(path);
        EXPECT_FALSE(UpgradeRecord().Begin());
        EXPECT_THAT(Said(),
                    ElementsAre(HasSubstr("Found a database"),
                                "warning UpgradeRecord: Failed to copy the database to '" + copy + "'",
                                kNotUpgraded));
        EXPECT_THAT(LumHealthReasons(),
                    ElementsAre(LumString("The database could not be upgraded, as there is "
                                          "no copy of it.")));
        EXPECT_TRUE(fs::is_directory(path));
        fs::remove_all(path);
        EXPECT_FALSE(fs::exists(copy + ".unfinished"));
    }
}

TEST_F(UpgradeRecordTest, WarnsWhereTheDiskIsFull) {
    Start(6, 1, 9);
    faults_.SetDiskFull(true);
    EXPECT_FALSE(UpgradeRecord().Begin());
    EXPECT_THAT(Said(), ElementsAre(HasSubstr("Found a database"), HasSubstr("error DBConnection: "),
                                    HasSubstr("warning UpgradeRecord: Failed to copy the database to '"),
                                    kNotUpgraded));
    EXPECT_FALSE(fs::exists(Path("EventLogManager-6.1.9.0.sqlite3")));
    EXPECT_FALSE(fs::exists(Path("EventLogManager-6.1.9.0.sqlite3.unfinished")));
}

TEST_F(UpgradeRecordTest, DoesNotBeginWithoutRoomForTheStepsAfterTheCopy) {
    const SmallDisk disk(std::size_t{8} << 20U);
    if (!disk.IsThere()) {
        GTEST_SKIP() << "takes the rights of root";
    }
    Start(6, 1, 9);
    Change(
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 3000) INSERT INTO "
        "Event_Logon (E_Date, E_DeviceId, E_GroupId, C_User) SELECT i, 0, 0, hex(zeroblob(500)) FROM n");
    DataDirectory = LumString(disk / "");  // where the copy goes; one copy has room there, three have not
    EXPECT_FALSE(UpgradeRecord().Begin());
    EXPECT_THAT(Said(), ElementsAre(HasSubstr("Found a database"),
                                    HasSubstr("warning UpgradeRecord: An upgrade takes "), kNotUpgraded));
    EXPECT_TRUE(fs::is_empty(disk / ""));
}

TEST_F(UpgradeRecordTest, WarnsWhereADefinitionCannotBeCopied) {
    Start(6, 1, 9);
    const std::string filed =
        "data/EventLogManager/models/_EVENTLOG_MODELNAME_PROHIBITEDAPPLICATION_/0123/old.xml";
    host_.Directory().Write(filed, "<MODEL/>");
    host_.Directory().Write("data/EventLogManager/EventLogManager-6.1.9.0-models", "in the way");
    EXPECT_FALSE(UpgradeRecord().Begin());
    EXPECT_THAT(Said(), Contains("warning UpgradeRecord: Failed to copy the filed definitions to '" +
                                 Path("EventLogManager-6.1.9.0-models") + "'"));
    EXPECT_FALSE(fs::exists(Path("EventLogManager-6.1.9.0.sqlite3")));
}

TEST_F(UpgradeRecordTest, LeavesItToTheStepsToSayThatTheDatabaseIsGone) {
    Start(6, 1, 9);
    Change("DROP TABLE DatabaseInformation");
    UpgradeRecord record;
    EXPECT_TRUE(record.Begin());
    record.End();
    EXPECT_THAT(Said(), ElementsAre(HasSubstr("no such table: DatabaseInformation")));
}

}  // namespace
