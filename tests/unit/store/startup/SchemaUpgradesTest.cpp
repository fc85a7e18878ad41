#include <memory>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "BuildPaths.h"
#include "host/database/Database.h"
#include "model/Model.h"
#include "model/ModelElement.h"
#include "store/DatabaseScope.h"
#include "store/ModelRegistry.h"
#include "store/startup/SchemaUpgrades.h"
#include "support/FaultVfs.h"
#include "support/LinkedModule.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kSaveFailed = "Failed to save old model informations";

class SchemaUpgrades : public testing::Test {
protected:
    /// Starts the module on an empty models directory, and takes the version back afterwards.
    void Start(int major, int minor, int revision) {
        LinkedModule::Initialise();
        SetVersion(major, minor, revision);
        host_.Log().Forget();
    }
    void Change(const std::string& sql) const { host_.Change(sql); }
    void SetField(const std::string& field, const std::string& value) const {
        Change("UPDATE DatabaseInformation SET FieldValue = " + value + " WHERE FieldName = '" + field + "'");
    }
    void SetVersion(int major, int minor, int revision) const {
        SetField("DatabaseVersionMajor", std::to_string(major));
        SetField("DatabaseVersionMinor", std::to_string(minor));
        SetField("DatabaseRevision", std::to_string(revision));
        SetField("DatabaseBuildNumber", "7");
    }
    [[nodiscard]] std::string Version() const {
        return host_.Rows(
            "SELECT group_concat(FieldValue, '.') FROM (SELECT FieldValue FROM DatabaseInformation WHERE "
            "FieldName LIKE 'Database%' ORDER BY CASE FieldName WHEN 'DatabaseVersionMajor' THEN 1 WHEN "
            "'DatabaseVersionMinor' THEN 2 WHEN 'DatabaseRevision' THEN 3 ELSE 4 END)");
    }
    [[nodiscard]] bool HasTable(const std::string& name) const {
        return host_.Rows("SELECT count(*) FROM sqlite_master WHERE name = '" + name + "'") == "1";
    }
    [[nodiscard]] static bool IsLoaded(const char* name) {
        std::shared_ptr<Model_t> model;
        return ModelCollection.Get(name, model);
    }
    /// Makes every update of one field of the version fail.
    void RefuseUpdatesOf(const std::string& field) const {
        Change("CREATE TRIGGER Refuse BEFORE UPDATE ON DatabaseInformation WHEN OLD.FieldName = '" + field +
               "' BEGIN SELECT RAISE(ABORT, 'refused'); END");
    }
    [[nodiscard]] std::vector<std::string> Said() const { return host_.Said(); }
    /// The same without the host's lines on failed statements.
    [[nodiscard]] std::vector<std::string> ModuleSaid() const {
        std::vector<std::string> lines = Said();
        std::erase_if(lines,
                      [](const std::string& line) { return line.starts_with("error DBConnection: "); });
        return lines;
    }

    /// Drops a definition of the software-distribution model as it was when its status was a number.
    void DropOldSoftwareDistribution() const {
        host_.Drop("old.xml",
                   Definition({.name = kSoftwareDistribution,
                               .params = {{"_EVENTLOG_MODELPARAM_OPRULENAME_"},
                                          {"_EVENTLOG_MODELPARAM_PACKAGETYPE_"},
                                          {"_EVENTLOG_MODELPARAM_PACKAGESIZE_", ParamType::kInteger},
                                          {"_EVENTLOG_MODELPARAM_STATUS_", ParamType::kInteger}}}));
    }
    void InsertSoftwareDistribution(const std::string& values) const {
        Change(
            "INSERT INTO Event__EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_ (E_Id, E_Date, E_GMT_Offset, "
            "E_DeviceId, E_GroupId, C__EVENTLOG_MODELPARAM_OPRULENAME_, C__EVENTLOG_MODELPARAM_PACKAGETYPE_, "
            "C__EVENTLOG_MODELPARAM_PACKAGESIZE_, C__EVENTLOG_MODELPARAM_STATUS_) VALUES " +
            values);
    }
    /// The table that holds the events of software distribution between the steps.
    void MakeEventTemp() const {
        Change(
            "CREATE TABLE Event_Temp (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_GMT_Offset INTEGER, "
            "E_DeviceId INTEGER NOT NULL, E_GroupId INTEGER NOT NULL, C__EVENTLOG_MODELPARAM_OPRULENAME_ "
            "TEXT, C__EVENTLOG_MODELPARAM_PACKAGETYPE_ TEXT, C__EVENTLOG_MODELPARAM_PACKAGESIZE_ INTEGER, "
            "C__EVENTLOG_MODELPARAM_STATUS_ TEXT)");
        Change(
            "INSERT INTO Event_Temp VALUES (1, 100, 0, 2, 3, 'rule', 'deb', 2048, "
            "'_DB_OPRULESTATUS_EXECUTEDOK_')");
    }
    /// Drops the definitions of the two managed-application models as they were without the connected user.
    void DropOldManagedApplications() const {
        const ParamText name{"_EVENTLOG_MODELPARAM_APPLICATIONNAME_"};
        const ParamText version{"_EVENTLOG_MODELPARAM_APPLICATIONVERSION_"};
        host_.Drop(
            {.name = kProhibitedApplication,
             .params = {name, version, {"_EVENTLOG_MODELPARAM_DETECTIONTIME_", ParamType::kTimestamp}}});
        host_.Drop({.name = kMonitoredApplication,
                    .params = {name,
                               version,
                               {"_EVENTLOG_MODELPARAM_MONITORINGDURATION_", ParamType::kInteger},
                               {"_EVENTLOG_MODELPARAM_MONITORINGENDDATE_", ParamType::kInteger},
                               {"_EVENTLOG_MODELPARAM_MONITORINGSTARTDATE_", ParamType::kInteger}}});
    }
    void InsertManagedApplications() const {
        Change(
            "INSERT INTO Event__EVENTLOG_MODELNAME_PROHIBITEDAPPLICATION_ VALUES (4, 100, 60, 2, 3, 'game', "
            "'1.0', 90)");
        Change(
            "INSERT INTO Event__EVENTLOG_MODELNAME_MONITOREDAPPLICATION_ VALUES (5, 200, 60, 2, 3, 'mail', "
            "'2.0', 30, 190, 160)");
    }
    void DropShipped(const std::string& file) const {
        host_.Drop(file, ReadWholeFile(std::string(LUM_SOURCE_DIR) + "/etc/models/" + file));
    }
    /// A registered model with a table as it was without the offset.
    void MakeModelWithoutOffset(const std::string& name) const {
        Change("CREATE TABLE Event_" + name +
               " (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_DeviceId INTEGER NOT NULL, E_GroupId INTEGER "
               "NOT NULL, C_User TEXT)");
        Change("CREATE INDEX Ix_Event_" + name + "_Date ON Event_" + name + " (E_Date)");
        Change("INSERT INTO Event_" + name + " VALUES (7, 100, 2, 3, '" + name + "'), (9, 101, 2, 3, NULL)");
        Change("INSERT INTO RegisteredModel VALUES ('" + name + "', 'x', 1, 0, 0)");
    }

    FaultVfs faults_;
    LinkedModule host_;
};

TEST_F(SchemaUpgrades, CompareVersionsFieldByField) {
    Start(5, 3, 3);
    const struct {
        int major, minor, revision;
        bool below533, below620;
    } cases[] = {
        {0, 0, 0, true, true},    {4, 9, 9, true, true},
        {5, 2, 9, true, true},    {5, 3, 2, true, true},
        {5, 3, 3, false, true},   {5, 3, 4, false, true},
        {5, 4, 0, false, true},   {6, 1, 9, false, true},
        {6, 2, 0, false, false},  {6, 2, 1, false, false},
        {6, 3, 0, false, false},  {7, 0, 0, false, false},
        {10, 0, 0, false, false}, {2147483647, 0, 0, false, false},
    };
    for (const auto& one : cases) {
        SetVersion(one.major, one.minor, one.revision);
        EXPECT_EQ(IsSmallerVersion(5, 3, 3), one.below533) << Version();
        EXPECT_EQ(IsSmallerVersion(6, 2, 0), one.below620) << Version();
    }
    EXPECT_THAT(Said(), IsEmpty());
}

TEST_F(SchemaUpgrades, DoNotTakeAMissingFieldForASmallOne) {
    for (const char* const field : {"DatabaseVersionMajor", "DatabaseVersionMinor", "DatabaseRevision"}) {
        Start(5, 3, 2);
        EXPECT_TRUE(IsSmallerVersion(5, 3, 3));
        Change("DELETE FROM DatabaseInformation WHERE FieldName = '" + std::string(field) + "'");
        EXPECT_FALSE(IsSmallerVersion(5, 3, 3)) << field;
        Change("INSERT INTO DatabaseInformation VALUES ('" + std::string(field) + "', 0)");
    }
}

TEST_F(SchemaUpgrades, DoNotNeedAFieldBehindTheOneThatDecides) {
    Start(5, 0, 0);
    Change("DELETE FROM DatabaseInformation WHERE FieldName != 'DatabaseVersionMajor'");
    EXPECT_TRUE(IsSmallerVersion(6, 2, 0));
    EXPECT_FALSE(IsSmallerVersion(4, 0, 0));
    EXPECT_FALSE(IsSmallerVersion(5, 3, 3));
}

TEST_F(SchemaUpgrades, DoNotTakeATextForANumber) {
    Start(5, 3, 2);
    for (const char* const value : {"NULL", "''", "'none'", "'-1'", "' '"}) {
        SetField("DatabaseVersionMajor", value);
        EXPECT_FALSE(IsSmallerVersion(6, 2, 0)) << value;
    }
    SetField("DatabaseVersionMajor", "' 5 '");
    EXPECT_TRUE(IsSmallerVersion(6, 2, 0));
}

TEST_F(SchemaUpgrades, DoNotRunWhereTheVersionCannotBeRead) {
    Start(5, 3, 2);
    DBConnection connection(DatabasePool);
    ASSERT_NE(connection.Query("ALTER TABLE DatabaseInformation RENAME COLUMN FieldValue TO Other"), nullptr);
    EXPECT_FALSE(IsSmallerVersion(6, 2, 0));
    EXPECT_THAT(Said(), IsEmpty());
    Change("DROP TABLE DatabaseInformation");
    EXPECT_FALSE(IsSmallerVersion(6, 2, 0));
    EXPECT_THAT(Said(), ElementsAre("error DBConnection: no such table: DatabaseInformation in statement: "
                                    "SELECT * FROM DatabaseInformation WHERE FieldName = ?"));
}

TEST_F(SchemaUpgrades, ReadTheVersionEvenWithoutTheLock) {
    Start(5, 3, 2);
    const DatabaseLockout lockout;
    EXPECT_TRUE(IsSmallerVersion(5, 3, 3));
    EXPECT_THAT(Said(), ElementsAre("error IsSmallerVersion: Failed to lock database"));
}

TEST_F(SchemaUpgrades, GiveTheLockBack) {
    Start(5, 3, 2);
    UpgradeSoftwareDistributionModelStep1();
    Upgrade620_Step1();
    UpgradeSoftwareDistributionModelStep2();
    Upgrade620_Step2();
    std::thread([] { EXPECT_FALSE(IsSmallerVersion(6, 2, 0)); }).join();
}

TEST_F(SchemaUpgrades, TurnTheStatusOfASoftwareDistributionIntoAToken) {
    DropOldSoftwareDistribution();
    Start(5, 3, 2);
    InsertSoftwareDistribution(
        "(1, 100, 60, 2, 3, 'a', 'deb', 10, 0), (2, 101, 60, 2, 3, 'b', 'rpm', 11, 1), "
        "(3, 102, 60, 2, 3, 'c', 'deb', 12, 2), (4, 103, 60, 2, 3, 'd', 'deb', 13, NULL)");
    UpgradeSoftwareDistributionModelStep1();
    EXPECT_EQ(host_.Rows("SELECT * FROM Event_Temp"),
              "1|100|0|2|3|a|deb|10|_DB_OPRULESTATUS_EXECUTEFAILED_\n"
              "2|101|0|2|3|b|rpm|11|_DB_OPRULESTATUS_EXECUTEDOK_");
    EXPECT_EQ(host_.Rows("SELECT group_concat(type) FROM pragma_table_info('Event_Temp')"),
              "INTEGER,TIMESTAMP,INTEGER,INTEGER,INTEGER,TEXT,TEXT,INTEGER,TEXT");
    EXPECT_FALSE(HasTable("Event__EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_"));
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM RegisteredModel"), "0");
    EXPECT_FALSE(host_.Directory().Has(std::string(LinkedModule::kModels) + "/" + kSoftwareDistribution));
    EXPECT_FALSE(IsLoaded(kSoftwareDistribution));
    EXPECT_EQ(Version(), "5.3.2.7");
}

TEST_F(SchemaUpgrades, LeaveSoftwareDistributionsOfTheNewKindAlone) {
    DropOldSoftwareDistribution();
    Start(5, 3, 3);
    InsertSoftwareDistribution("(1, 100, 60, 2, 3, 'a', 'deb', 10, 0)");
    UpgradeSoftwareDistributionModelStep1();
    UpgradeSoftwareDistributionModelStep2();
    EXPECT_FALSE(HasTable("Event_Temp"));
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Event__EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_"), "1");
    EXPECT_EQ(Version(), "5.3.3.7");
    EXPECT_THAT(Said(), IsEmpty());
}

TEST_F(SchemaUpgrades, RemoveTheSoftwareDistributionModelEvenWhereItsEventsWereNotSaved) {
    DropOldSoftwareDistribution();
    Start(5, 3, 2);
    InsertSoftwareDistribution("(1, 100, 60, 2, 3, 'a', 'deb', 10, 0)");
    Change("CREATE TABLE Event_Temp (a)");
    UpgradeSoftwareDistributionModelStep1();
    EXPECT_THAT(ModuleSaid(),
                ElementsAre("warning UpgradeSoftwareDistributionModelStep1: " + std::string(kSaveFailed),
                            "print UnregisterModel: Model '_EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_' has "
                            "been unregistered with success",
                            "print RemoveRegisteredModel: Model '_EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_' "
                            "has been removed with success"));
    EXPECT_FALSE(HasTable("Event__EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_"));
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Event_Temp"), "0");
}

TEST_F(SchemaUpgrades, SaveNothingWhereThereWasNoSoftwareDistribution) {
    Start(5, 3, 2);
    UpgradeSoftwareDistributionModelStep1();
    EXPECT_THAT(ModuleSaid(),
                ElementsAre("warning UpgradeSoftwareDistributionModelStep1: " + std::string(kSaveFailed),
                            "error RemoveRegisteredModel: Failed to get model "
                            "'_EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_'"));
    EXPECT_FALSE(HasTable("Event_Temp"));
}

TEST_F(SchemaUpgrades, SaveSoftwareDistributionsEvenWithoutTheLock) {
    DropOldSoftwareDistribution();
    Start(5, 3, 2);
    InsertSoftwareDistribution("(1, 100, 60, 2, 3, 'a', 'deb', 10, 0)");
    const DatabaseLockout lockout;
    UpgradeSoftwareDistributionModelStep1();
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Event_Temp"), "1");
    EXPECT_THAT(Said(), ElementsAre("error IsSmallerVersion: Failed to lock database",
                                    "error UpgradeSoftwareDistributionModelStep1: Failed to lock database",
                                    "error UnregisterModel: Failed to lock database"));
}

TEST_F(SchemaUpgrades, PutSoftwareDistributionsBackByPosition) {
    DropShipped("SoftwareDistribution.xml");
    Start(5, 3, 2);
    MakeEventTemp();
    UpgradeSoftwareDistributionModelStep2();
    // The new table's columns stand in the order of their names, the transitional ones do not: each of the
    // two takes the other's value.
    EXPECT_EQ(host_.Rows("SELECT group_concat(name) FROM pragma_table_info("
                         "'Event__EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_') WHERE name LIKE 'C%SIZE_' OR "
                         "name LIKE 'C%TYPE_'"),
              "C__EVENTLOG_MODELPARAM_PACKAGESIZE_,C__EVENTLOG_MODELPARAM_PACKAGETYPE_");
    EXPECT_EQ(host_.Rows("SELECT *, typeof(C__EVENTLOG_MODELPARAM_PACKAGESIZE_) FROM "
                         "Event__EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_"),
              "1|100|0|2|3|rule|deb|2048|_DB_OPRULESTATUS_EXECUTEDOK_|text");
    EXPECT_FALSE(HasTable("Event_Temp"));
    EXPECT_EQ(Version(), "5.3.3.0");
    EXPECT_THAT(Said(), IsEmpty());
}

TEST_F(SchemaUpgrades, KeepTheSavedSoftwareDistributionsWhereThereIsNoNewModel) {
    Start(5, 3, 2);
    MakeEventTemp();
    UpgradeSoftwareDistributionModelStep2();
    EXPECT_THAT(ModuleSaid(),
                ElementsAre("warning UpgradeSoftwareDistributionModelStep2: " + std::string(kSaveFailed)));
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Event_Temp"), "1");
    EXPECT_EQ(Version(), "5.3.2.7");
}

TEST_F(SchemaUpgrades, KeepTheSavedSoftwareDistributionsWhereTheNewTableHasOtherColumns) {
    host_.Drop("other.xml", Definition({.name = kSoftwareDistribution, .params = {{"One"}}}));
    Start(5, 3, 2);
    MakeEventTemp();
    UpgradeSoftwareDistributionModelStep2();
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Event_Temp"), "1");
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Event__EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_"), "0");
    EXPECT_EQ(Version(), "5.3.2.7");
}

TEST_F(SchemaUpgrades, PutNoSoftwareDistributionBackWithoutTheVersion) {
    for (const char* const field :
         {"DatabaseVersionMajor", "DatabaseVersionMinor", "DatabaseRevision", "DatabaseBuildNumber"}) {
        DropShipped("SoftwareDistribution.xml");
        Start(5, 2, 2);
        MakeEventTemp();
        RefuseUpdatesOf(field);
        UpgradeSoftwareDistributionModelStep2();
        EXPECT_EQ(host_.Rows("SELECT count(*) FROM Event__EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_"), "0")
            << field;
        EXPECT_EQ(Version(), "5.2.2.7") << field;
        EXPECT_THAT(ModuleSaid(),
                    Contains("warning UpgradeSoftwareDistributionModelStep2: " + std::string(kSaveFailed)));
        Change("DROP TRIGGER Refuse");
        Change("DROP TABLE Event_Temp");
    }
}

TEST_F(SchemaUpgrades, SaveManagedApplicationsWithoutAUser) {
    DropOldManagedApplications();
    Start(6, 1, 9);
    InsertManagedApplications();
    Upgrade620_Step1();
    EXPECT_EQ(host_.Rows("SELECT * FROM Event_ProhibitedAppTemp"), "4|100|0|2|3|game|1.0|||90");
    EXPECT_EQ(host_.Rows("SELECT * FROM Event_MonitoredAppTemp"), "5|200|0|2|3|mail|2.0|||30|190|160");
    EXPECT_EQ(host_.Rows("SELECT group_concat(type) FROM pragma_table_info('Event_ProhibitedAppTemp')"),
              "INTEGER,TIMESTAMP,INTEGER,INTEGER,INTEGER,TEXT,TEXT,TEXT,TEXT,TIMESTAMP");
    EXPECT_EQ(host_.Rows("SELECT group_concat(type) FROM pragma_table_info('Event_MonitoredAppTemp')"),
              "INTEGER,TIMESTAMP,INTEGER,INTEGER,INTEGER,TEXT,TEXT,TEXT,TEXT,INTEGER,INTEGER,INTEGER");
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM RegisteredModel"), "0");
    EXPECT_FALSE(IsLoaded(kProhibitedApplication));
    EXPECT_FALSE(IsLoaded(kMonitoredApplication));
    EXPECT_FALSE(HasTable("Event__EVENTLOG_MODELNAME_PROHIBITEDAPPLICATION_"));
    EXPECT_FALSE(HasTable("Event__EVENTLOG_MODELNAME_MONITOREDAPPLICATION_"));
    EXPECT_EQ(Version(), "6.1.9.7");
}

TEST_F(SchemaUpgrades, KeepManagedApplicationsThatCouldNotBeSaved) {
    DropOldManagedApplications();
    Start(6, 1, 9);
    InsertManagedApplications();
    Change("CREATE TABLE Event_MonitoredAppTemp (a)");
    Upgrade620_Step1();
    EXPECT_THAT(ModuleSaid(),
                ElementsAre("warning UpgradeManagedApplicationModelsStep1: " + std::string(kSaveFailed)));
    EXPECT_FALSE(HasTable("Event_ProhibitedAppTemp"));
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Event__EVENTLOG_MODELNAME_PROHIBITEDAPPLICATION_"), "1");
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Event__EVENTLOG_MODELNAME_MONITOREDAPPLICATION_"), "1");
    EXPECT_TRUE(IsLoaded(kProhibitedApplication));
    EXPECT_TRUE(IsLoaded(kMonitoredApplication));
}

TEST_F(SchemaUpgrades, LeaveManagedApplicationsOfTheNewKindAlone) {
    DropOldManagedApplications();
    Start(6, 2, 0);
    InsertManagedApplications();
    Upgrade620_Step1();
    Upgrade620_Step2();
    UpgradeModelsWithGMTOffsetStep1();
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Event__EVENTLOG_MODELNAME_PROHIBITEDAPPLICATION_"), "1");
    EXPECT_FALSE(HasTable("Event_ProhibitedAppTemp"));
    EXPECT_EQ(Version(), "6.2.0.7");
    EXPECT_THAT(Said(), IsEmpty());
}

TEST_F(SchemaUpgrades, SaveManagedApplicationsEvenWithoutTheLock) {
    DropOldManagedApplications();
    Start(6, 1, 9);
    InsertManagedApplications();
    const DatabaseLockout lockout;
    UpgradeManagedApplicationModelsStep1();
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Event_ProhibitedAppTemp"), "1");
    EXPECT_THAT(Said(), ElementsAre("error UpgradeManagedApplicationModelsStep1: Failed to lock database",
                                    "error UnregisterModel: Failed to lock database",
                                    "error UnregisterModel: Failed to lock database"));
}

TEST_F(SchemaUpgrades, PutManagedApplicationsBack) {
    DropOldManagedApplications();
    Start(6, 1, 9);
    InsertManagedApplications();
    Upgrade620_Step1();
    DropShipped("ProhibitedApplication.xml");
    DropShipped("MonitoredApplication.xml");
    LoadUnregisteredModels();
    Upgrade620_Step2();
    EXPECT_EQ(host_.Rows("SELECT * FROM Event__EVENTLOG_MODELNAME_PROHIBITEDAPPLICATION_"),
              "4|100|0|2|3|game|1.0|||90");
    EXPECT_EQ(host_.Rows("SELECT * FROM Event__EVENTLOG_MODELNAME_MONITOREDAPPLICATION_"),
              "5|200|0|2|3|mail|2.0|||30|190|160");
    EXPECT_FALSE(HasTable("Event_ProhibitedAppTemp"));
    EXPECT_FALSE(HasTable("Event_MonitoredAppTemp"));
    EXPECT_EQ(Version(), "6.2.0.0");
}

TEST_F(SchemaUpgrades, PutManagedApplicationsBackTogetherOrNotAtAll) {
    DropOldManagedApplications();
    Start(6, 1, 9);
    InsertManagedApplications();
    Upgrade620_Step1();
    DropShipped("ProhibitedApplication.xml");
    LoadUnregisteredModels();
    Upgrade620_Step2();
    EXPECT_THAT(ModuleSaid(),
                Contains("warning UpgradeManagedApplicationModelsStep2: " + std::string(kSaveFailed)));
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Event__EVENTLOG_MODELNAME_PROHIBITEDAPPLICATION_"), "0");
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Event_ProhibitedAppTemp"), "1");
    EXPECT_EQ(host_.Rows("SELECT count(*) FROM Event_MonitoredAppTemp"), "1");
    EXPECT_EQ(Version(), "6.2.0.0");
}

TEST_F(SchemaUpgrades, PutManagedApplicationsBackEvenWithoutTheLock) {
    Start(6, 1, 9);
    const DatabaseLockout lockout;
    Upgrade620_Step2();
    EXPECT_THAT(ModuleSaid(),
                ElementsAre("error IsSmallerVersion: Failed to lock database",
                            "error UpgradeManagedApplicationModelsStep2: Failed to lock database",
                            "warning UpgradeManagedApplicationModelsStep2: " + std::string(kSaveFailed),
                            "error IsSmallerVersion: Failed to lock database",
                            "error UpgradeModelsWithGMTOffsetStep1: Failed to lock database",
                            "error Upgrade620_Step2: Failed to lock database"));
    EXPECT_EQ(Version(), "6.2.0.0");
}

TEST_F(SchemaUpgrades, SayThatTheVersionCouldNotBeWritten) {
    Start(6, 1, 9);
    RefuseUpdatesOf("DatabaseBuildNumber");
    Upgrade620_Step2();
    EXPECT_THAT(ModuleSaid(), Contains("warning Upgrade620_Step2: Failed finish upgrade."));
    EXPECT_EQ(Version(), "6.1.9.7");
}

TEST_F(SchemaUpgrades, GiveEveryEventTableTheOffset) {
    host_.Drop("new.xml", Definition({.name = "New", .params = {{"User"}}}));
    Start(6, 1, 9);
    MakeModelWithoutOffset("A");
    MakeModelWithoutOffset("B");
    const std::string untouched =
        host_.Rows("SELECT rootpage, sql FROM sqlite_master WHERE tbl_name = 'Event_New'");
    UpgradeModelsWithGMTOffsetStep1();
    for (const std::string name : {"A", "B"}) {
        EXPECT_EQ(host_.Rows("SELECT * FROM Event_" + name), "7|100|0|2|3|" + name + "\n9|101|0|2|3|NULL");
        EXPECT_EQ(host_.Rows("SELECT sql FROM sqlite_master WHERE tbl_name = 'Event_" + name + "'"),
                  "CREATE TABLE Event_" + name +
                      " (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_GMT_Offset INTEGER, E_DeviceId "
                      "INTEGER NOT NULL, E_GroupId INTEGER NOT NULL, C_User TEXT)");
        EXPECT_FALSE(HasTable("Event_" + name + "Temp"));
        EXPECT_FALSE(HasTable("Ix_Event_" + name + "_Date"));
    }
    EXPECT_EQ(host_.Rows("SELECT rootpage, sql FROM sqlite_master WHERE tbl_name = 'Event_New'"), untouched);
    EXPECT_EQ(Version(), "6.1.9.7");
    EXPECT_THAT(Said(), IsEmpty());
}

TEST_F(SchemaUpgrades, GiveAllEventTablesTheOffsetOrNone) {
    Start(6, 1, 9);
    MakeModelWithoutOffset("A");
    MakeModelWithoutOffset("B");
    Change("CREATE TABLE Event_BTemp (a)");
    UpgradeModelsWithGMTOffsetStep1();
    EXPECT_THAT(ModuleSaid(), ElementsAre("warning UpgradeModelsWithGMTOffsetStep1: Failed upgrade model"));
    for (const std::string name : {"A", "B"}) {
        EXPECT_EQ(host_.Rows("SELECT * FROM Event_" + name), "7|100|2|3|" + name + "\n9|101|2|3|NULL");
        EXPECT_TRUE(HasTable("Ix_Event_" + name + "_Date"));
    }
    EXPECT_FALSE(HasTable("Event_ATemp"));
}

TEST_F(SchemaUpgrades, GiveTheOffsetToModelsThatAreCalledAsTransitionalTables) {
    Start(6, 1, 9);
    for (const std::string name : {"A", "Atemp", "ATempTemp"}) {
        MakeModelWithoutOffset(name.c_str());
    }
    UpgradeModelsWithGMTOffsetStep1();
    EXPECT_THAT(Said(), IsEmpty());
    for (const std::string name : {"A", "Atemp", "ATempTemp"}) {
        EXPECT_EQ(host_.Rows("SELECT * FROM Event_" + name), "7|100|0|2|3|" + name + "\n9|101|0|2|3|NULL");
    }
    EXPECT_FALSE(HasTable("Event_ATempTempTemp"));
}

TEST_F(SchemaUpgrades, PassOverModelsWithoutATableOfTheModules) {
    Start(6, 1, 9);
    MakeModelWithoutOffset("A");
    Change("INSERT INTO RegisteredModel VALUES ('Gone', 'x', 1, 0, 0)");
    Change("INSERT INTO RegisteredModel VALUES ('it''s', 'x', 1, 0, 0)");
    Change("CREATE TABLE Event_Odd (E_DeviceID, x)");
    Change("INSERT INTO RegisteredModel VALUES ('Odd', 'x', 1, 0, 0)");
    UpgradeModelsWithGMTOffsetStep1();
    const std::string routine = "warning UpgradeModelsWithGMTOffsetStep1: ";
    EXPECT_THAT(Said(),
                testing::UnorderedElementsAre(routine + "Model 'Gone' has no table that can be upgraded",
                                              routine + "Model 'it's' has no table that can be upgraded",
                                              routine + "Model 'Odd' has no table that can be upgraded"));
    EXPECT_EQ(host_.Rows("SELECT * FROM Event_A"), "7|100|0|2|3|A\n9|101|0|2|3|NULL");
}

TEST_F(SchemaUpgrades, LeaveATableWhoseTextIsOddAsItWas) {
    Start(6, 1, 9);
    Change("CREATE TABLE Event_Odd (E_Id INTEGER PRIMARY KEY, E_DeviceId INTEGER, C_A DECIMAL(10,2))");
    Change("INSERT INTO Event_Odd VALUES (1, 2, 3)");
    Change("INSERT INTO RegisteredModel VALUES ('Odd', 'x', 1, 0, 0)");
    UpgradeModelsWithGMTOffsetStep1();
    EXPECT_THAT(ModuleSaid(), ElementsAre("warning UpgradeModelsWithGMTOffsetStep1: Failed upgrade model"));
    EXPECT_EQ(host_.Rows("SELECT * FROM Event_Odd"), "1|2|3");
}

TEST_F(SchemaUpgrades, SayThatTheModelsCannotBeRead) {
    Start(6, 1, 9);
    Change("DROP TABLE RegisteredModel");
    UpgradeModelsWithGMTOffsetStep1();
    EXPECT_THAT(ModuleSaid(), ElementsAre("error UpgradeModelsWithGMTOffsetStep1: Failed to upgrade "
                                          "registered models"));
}

TEST_F(SchemaUpgrades, SayThatATableCannotBeRead) {
    Start(5, 1, 9);
    MakeModelWithoutOffset("A");
    Change("CREATE TABLE Event_ATemp (a)");  // so that every attempt meets the same
    UpgradeModelsWithGMTOffsetStep1();
    // Each statement locks; one of them is the query for the text of the table.
    for (uint64_t nth = 1; nth <= 5; ++nth) {
        faults_.FailCall(FaultVfs::Call::kLock, nth, SQLITE_IOERR_LOCK);
        UpgradeModelsWithGMTOffsetStep1();
    }
    faults_.Reset();
    EXPECT_THAT(Said(), Contains("error DBConnection: disk I/O error in statement: SELECT sql FROM "
                                 "sqlite_master where type = ? and name = ?"));
    EXPECT_THAT(ModuleSaid(), Contains("error UpgradeModelsWithGMTOffsetStep1: Failed to upgrade registered "
                                       "models"));
    EXPECT_EQ(host_.Rows("SELECT * FROM Event_A"), "7|100|2|3|A\n9|101|2|3|NULL");
}

}  // namespace
