#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "machine/ShippedModels.h"
#include "machine/source/MachineLog.h"
#include "support/LoadedModule.h"
#include "support/LogReader.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// A fresh event log, and the models that two sources want to have there.
class ShippedModelsTest : public testing::Test {
protected:
    void SetUp() override {
        MachineDebug.SetContext(&log_.Context());
        agent_.Start();
    }
    void TearDown() override { MachineDebug.SetContext(nullptr); }

    void Bring(const std::vector<const char*>& wanted = {"Logon", "DiskUsage"}) {
        log_.Forget();
        BringModels(agent_.Directory().At(LoadedModule::kModels) + "/", directory_.At("list"), wanted);
    }
    [[nodiscard]] std::vector<std::string> Registered() const {
        return agent_.Database().Column("SELECT RM_ModelName FROM RegisteredModel ORDER BY 1");
    }
    static void Delete(const std::string& model) {
        ASSERT_EQ(
            LoadedModule::CallWith("EventLogManagerDeleteModels", R"({"ModelName":[")" + model + "\"]}"), 0U);
    }

    TempDirectory directory_;
    LogLines log_;
    LoadedModule agent_;
};

TEST_F(ShippedModelsTest, AreBroughtWithTheModelsThatAreFilledFromThem) {
    Bring();
    EXPECT_THAT(Registered(), ElementsAre("DiskUsage", "DiskUsageByHour", "Logon", "LogonsByHour"));
    EXPECT_THAT(log_.Said(),
                Contains("print MachineEvents BringModels: Model 'Logon' was missing and has been dropped"));
    Bring();
    EXPECT_THAT(log_.Said(), IsEmpty());
    Bring({"Logon", "DiskUsage", "Crash"});
    EXPECT_THAT(Registered(), Contains("Crash")) << "a source that was switched on later";
}

TEST_F(ShippedModelsTest, OneThatWasDeletedStaysDeleted) {
    Bring();
    Delete("LogonsByHour");
    Bring();
    EXPECT_THAT(Registered(), ElementsAre("DiskUsage", "DiskUsageByHour", "Logon"));
    EXPECT_THAT(log_.Said(), IsEmpty());
}

TEST_F(ShippedModelsTest, AllAreBroughtToAnEventLogThatHasNone) {
    Bring();
    for (const char* const model : {"LogonsByHour", "Logon", "DiskUsageByHour", "DiskUsage"}) {
        Delete(model);
    }
    Bring();
    EXPECT_EQ(Registered().size(), 4U);
}

TEST_F(ShippedModelsTest, ANameThatIsNoLongerShippedDoesNoHarm) {
    directory_.Write("list", "AnOlderName\nLogon\n\n\xff\xfe");
    agent_.DropShipped("DiskUsage");
    ASSERT_EQ(LoadedModule::CallWith("EventLogManagerReloadModels", "{}"), 0U);
    Bring();
    EXPECT_THAT(Registered(), Not(Contains("Logon"))) << "it was dropped once";
    EXPECT_THAT(Registered(), Contains("DiskUsageByHour"));
    EXPECT_THAT(directory_.Read("list"), HasSubstr("AnOlderName\n"));
}

TEST_F(ShippedModelsTest, AFileOfTheSameNameIsLeftAsItIs) {
    agent_.Drop("Logon.xml", "not a model");
    Bring();
    EXPECT_EQ(agent_.Directory().Read(std::string(LoadedModule::kModels) + "/Logon.xml"), "not a model");
    EXPECT_THAT(Registered(), Not(Contains("Logon")));
}

TEST_F(ShippedModelsTest, AModelOfTheSameNameIsLeftAsItIs) {
    agent_.Drop(ModelText{.name = "Logon", .params = {{.name = "Text"}}});
    ASSERT_EQ(LoadedModule::CallWith("EventLogManagerReloadModels", "{}"), 0U);
    const std::string checksum =
        agent_.Rows("SELECT RM_Checksum FROM RegisteredModel WHERE RM_ModelName = 'Logon'");
    Bring();
    EXPECT_EQ(agent_.Rows("SELECT RM_Checksum FROM RegisteredModel WHERE RM_ModelName = 'Logon'"), checksum);
}

TEST_F(ShippedModelsTest, AListThatCannotBeKeptIsOneWarning) {
    directory_.MakeDirectory("list/in-the-way");
    Bring();
    EXPECT_EQ(Registered().size(), 4U);
    EXPECT_THAT(log_.Said(LumLogLevel::kWarning),
                ElementsAre(HasSubstr("BringModels: Failed to keep the list of dropped models")));
}

TEST_F(ShippedModelsTest, ADirectoryThatTakesNoneIsOneErrorAModel) {
    std::filesystem::remove_all(agent_.Directory() / LoadedModule::kModels);
    std::ofstream(agent_.Directory() / LoadedModule::kModels) << "a file";
    Bring({"Logon"});
    EXPECT_THAT(log_.Said(LumLogLevel::kError),
                ElementsAre(HasSubstr("BringModels: Failed to drop model 'Logon'"),
                            HasSubstr("Failed to drop model 'LogonsByHour'")));
    EXPECT_FALSE(directory_.Has("list"));
}

TEST_F(ShippedModelsTest, WithoutAnEventLogNothingIsDropped) {
    agent_.Stop();
    Bring();
    EXPECT_THAT(log_.Said(),
                ElementsAre("warning MachineEvents BringModels: The event log does not answer, so nothing "
                            "is dropped"));
    EXPECT_FALSE(directory_.Has("list"));
}

}  // namespace
