#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model/CheckModels.h"
#include "model/Model.h"
#include "model/ModelElement.h"
#include "store/DatabaseScope.h"
#include "store/DatabaseSetup.h"
#include "store/ModelRegistry.h"
#include "store/Paths.h"
#include "store/startup/EventManagerMerge.h"
#include "store/startup/SchemaUpgrades.h"
#include "support/CallRecord.h"
#include "support/StartedModule.h"

// What is done with the database under DatabaseMutex, what is not, and in which order.

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class StoreLock : public testing::Test, protected StartedModule {
protected:
    void BeOfVersionFive() const {
        Change("UPDATE DatabaseInformation SET FieldValue = 5 WHERE FieldName = 'DatabaseVersionMajor'");
    }
    /// A model as it was before release 6.2.0.
    static void AddManagedApplication(const char* name, std::initializer_list<const char*> params) {
        ModelText text{.name = name};
        for (const char* const param : params) {
            text.params.push_back({.name = std::string("_EVENTLOG_MODELPARAM_") + param + "_"});
        }
        Add(text);
    }
};

using DatabaseSetupLock = StoreLock;
using ModelRegistryLock = StoreLock;
using SchemaUpgradesLock = StoreLock;

TEST_F(DatabaseSetupLock, CoversTheScriptsTheChecksAndTheCompaction) {
    const CallRecord record;
    InitializeDatabase();
    EXPECT_THAT(record.WithoutLock("SQL "), IsEmpty());
    EXPECT_THAT(record.UnderLock("SQL pragma integrity_check"), testing::SizeIs(2))
        << "before it and after it";
    EXPECT_THAT(record.UnderLock("SQL vacuum"), testing::SizeIs(1));
}

TEST_F(ModelRegistryLock, CoversARegistrationInItsOrder) {
    const CallRecord record;
    ASSERT_TRUE(RegisterModel(MakeModel({.params = {{.name = "User"}}})));
    EXPECT_THAT(record.All("SQL "),
                ElementsAre(StartsWith("SQL SELECT RM_ModelName FROM RegisteredModel "), "SQL BEGIN",
                            StartsWith("SQL CREATE TABLE Event_Logon "),
                            StartsWith("SQL INSERT INTO RegisteredModel "),
                            StartsWith("SQL CREATE INDEX Ix_Event_Logon_Date "),
                            StartsWith("SQL CREATE INDEX Ix_Event_Logon_DeviceID "),
                            StartsWith("SQL CREATE INDEX Ix_Event_Logon_GroupID "), "SQL COMMIT"));
    EXPECT_THAT(record.WithoutLock("SQL "), IsEmpty());
    EXPECT_THAT(record.WithoutLock("print "),
                Contains("print RegisterModel: Model 'Logon' has been registered with success"));
    EXPECT_THAT(record.All("trace RegisterModel"), ElementsAre("trace RegisterModel: Entering"));
}

TEST_F(ModelRegistryLock, CoversARemovalInItsOrder) {
    const auto model = Add({.params = {{.name = "User"}}});
    const CallRecord record;
    ASSERT_TRUE(UnregisterModel(model));
    EXPECT_THAT(record.All("SQL "),
                ElementsAre("SQL BEGIN", "SQL DROP TABLE Event_Logon;",
                            StartsWith("SQL DELETE FROM RegisteredModel "), "SQL COMMIT"));
    EXPECT_THAT(record.WithoutLock("SQL "), IsEmpty());
    EXPECT_THAT(record.All("trace UnregisterModel"), ElementsAre("trace UnregisterModel: Entering"));
    EXPECT_THAT(record.WithoutLock("print "),
                Contains("print UnregisterModel: Model 'Logon' has been unregistered with success"))
        << "the definition is deleted before that";
}

TEST_F(ModelRegistryLock, IsGivenBackBeforeDefinitionsAreRead) {
    Drop({.params = {{.name = "User"}}});
    ASSERT_TRUE(LoadUnregisteredModels());
    const CallRecord record;
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_TRUE(LoadRegisteredModels());
    EXPECT_THAT(record.UnderLock("trace LoadModel: "), IsEmpty());
    EXPECT_THAT(record.WithoutLock("trace LoadModel: "), Not(IsEmpty()));
    for (const char* const line :
         {"trace LoadUnregisteredModels: Entering", "trace LoadRegisteredModels: Entering",
          "trace LoadRegisteredModel: Entering"}) {
        EXPECT_THAT(record.All("trace "), Contains(line));
    }
}

TEST_F(ModelRegistryLock, IsTheRegistrysOwnForAStepAsAWhole) {
    Drop({.params = {{.name = "User"}}});
    const CallRecord record;
    EXPECT_TRUE(LoadUnregisteredModels());
    EXPECT_TRUE(RemoveRegisteredModel("Logon"));
    EXPECT_THAT(record.All("SQL "), Not(IsEmpty()));
    EXPECT_EQ(record.UnderRegistryLock("SQL "), record.All("SQL "));
    // The database's is held for the statements alone.
    EXPECT_THAT(record.UnderLock("trace "), IsEmpty());
    EXPECT_THAT(record.UnderLock("print "), IsEmpty());
}

TEST_F(ModelRegistryLock, IsGivenBackBeforeDefinitionsAreReadAgain) {
    Drop({.params = {{.name = "User"}}});
    Drop({.name = "Sums",
          .type = ModelType::kAutomatic,
          .source = "Logon",
          .aggregation = Policy::kHourly,
          .params = {{.name = "User", .source = "User"}}});
    ASSERT_TRUE(LoadUnregisteredModels());
    std::shared_ptr<Model_t> model;
    ASSERT_TRUE(ModelCollection.Get("Logon", model));
    const std::string filed(FiledDirectory("Logon", model->GetChecksum()).View());
    std::filesystem::rename(filed, filed + ".away");
    while (ModelCollection.GetAt(0, model)) {
        ModelCollection.Remove(model);
    }
    ASSERT_TRUE(LoadRegisteredModels());
    CheckModels();
    ASSERT_EQ(ModelCollection.GetCount(), 0U);
    std::filesystem::rename(filed + ".away", filed);
    const CallRecord record;
    EXPECT_TRUE(LoadWhatCanBeReadAgain());
    EXPECT_EQ(ModelCollection.GetCount(), 2U);
    EXPECT_THAT(record.UnderLock("trace LoadModel: "), IsEmpty());
}

TEST_F(ModelRegistryLock, IsGivenBackBeforeAFailureIsSaid) {
    Database().Run("DROP TABLE RegisteredModel");
    const CallRecord record;
    EXPECT_FALSE(LoadRegisteredModels());
    EXPECT_FALSE(RegisterModel(MakeModel({})));
    EXPECT_FALSE(UnregisterModel(MakeModel({.name = "Nobody"})));
    EXPECT_THAT(record.WithoutLock("error "),
                ElementsAre("error LoadRegisteredModels: Failed to load registered models",
                            "error RegisterModel: Failed to register model 'Logon'",
                            "error UnregisterModel: Failed to unregister model 'Nobody'"));
}

TEST_F(SchemaUpgradesLock, IsGivenBackBeforeTheOldSoftwareDistributionGoes) {
    BeOfVersionFive();
    Add({.name = kSoftwareDistribution});
    const CallRecord record;
    UpgradeSoftwareDistributionModelStep1();
    EXPECT_THAT(record.WithoutLock("trace "), Contains("trace RemoveRegisteredModel: Entering"));
    EXPECT_THAT(record.UnderLock("trace "), Not(Contains("trace RemoveRegisteredModel: Entering")));
}

TEST_F(SchemaUpgradesLock, IsHeldUntilTheOldManagedApplicationsHaveGone) {
    BeOfVersionFive();
    AddManagedApplication(kProhibitedApplication, {"APPLICATIONNAME", "APPLICATIONVERSION", "DETECTIONTIME"});
    AddManagedApplication(kMonitoredApplication,
                          {"APPLICATIONNAME", "APPLICATIONVERSION", "MONITORINGDURATION", "MONITORINGENDDATE",
                           "MONITORINGSTARTDATE"});
    const CallRecord record;
    UpgradeManagedApplicationModelsStep1();
    EXPECT_THAT(record.UnderLock("trace RemoveRegisteredModel: Entering"), testing::SizeIs(2));
    EXPECT_THAT(record.WithoutLock("SQL "), IsEmpty());
}

TEST_F(SchemaUpgradesLock, IsGivenBackBeforeAFailureOfTheOffsetIsSaid) {
    BeOfVersionFive();
    Change("DROP TABLE RegisteredModel");
    const CallRecord record;
    UpgradeModelsWithGMTOffsetStep1();
    EXPECT_THAT(record.WithoutLock("error "),
                Contains("error UpgradeModelsWithGMTOffsetStep1: Failed to upgrade registered models"));
}

TEST_F(SchemaUpgradesLock, EachRoutineOfAStepSaysThatItIsEntered) {
    BeOfVersionFive();
    Change("DELETE FROM DatabaseInformation WHERE FieldName = 'EventManagerMerge'");
    const CallRecord record;
    UpgradeManagedApplicationModelsStep1();
    UpgradeManagedApplicationModelsStep2();
    UpgradeModelsWithGMTOffsetStep1();
    Upgrade1000();
    for (const char* const routine :
         {"UpgradeManagedApplicationModelsStep1", "UpgradeManagedApplicationModelsStep2",
          "UpgradeModelsWithGMTOffsetStep1", "Upgrade1000", "RetireEventManagerModule"}) {
        EXPECT_THAT(record.All("trace "), Contains(std::string("trace ") + routine + ": Entering"));
    }
}

TEST_F(SchemaUpgradesLock, EachStepSaysThatItIsEntered) {
    const CallRecord record;
    UpgradeSoftwareDistributionModelStep1();
    UpgradeSoftwareDistributionModelStep2();
    Upgrade620_Step1();
    Upgrade620_Step2();
    for (const char* const step :
         {"UpgradeSoftwareDistributionModelStep1", "UpgradeSoftwareDistributionModelStep2",
          "Upgrade620_Step1", "Upgrade620_Step2", "IsSmallerVersion"}) {
        EXPECT_THAT(record.All("trace "), Contains(std::string("trace ") + step + ": Entering"));
    }
}

}  // namespace
