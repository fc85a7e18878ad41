#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model/Model.h"
#include "store/DatabaseScope.h"
#include "store/DatabaseSetup.h"
#include "store/ModelRegistry.h"
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

class StoreLock : public testing::Test, protected StartedModule {};

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
}

TEST_F(ModelRegistryLock, IsGivenBackBeforeDefinitionsAreRead) {
    Drop({.params = {{.name = "User"}}});
    ASSERT_TRUE(LoadUnregisteredModels());
    const CallRecord record;
    EXPECT_TRUE(LoadRegisteredModels());
    EXPECT_THAT(record.UnderLock("trace LoadModel: "), IsEmpty());
    EXPECT_THAT(record.WithoutLock("trace LoadModel: "), Not(IsEmpty()));
    for (const char* const line :
         {"trace LoadRegisteredModels: Entering", "trace LoadRegisteredModel: Entering"}) {
        EXPECT_THAT(record.All("trace "), Contains(line));
    }
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
    Database().Run("UPDATE DatabaseInformation SET FieldValue = 5 WHERE FieldName = 'DatabaseVersionMajor'");
    Add({.name = kSoftwareDistribution});
    const CallRecord record;
    UpgradeSoftwareDistributionModelStep1();
    EXPECT_THAT(record.WithoutLock("trace "), Contains("trace RemoveRegisteredModel: Entering"));
    EXPECT_THAT(record.UnderLock("trace "), Not(Contains("trace RemoveRegisteredModel: Entering")));
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
