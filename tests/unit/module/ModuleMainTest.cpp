#include <array>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/core/ActionDb.h"
#include "host/core/LumAgent.h"
#include "host/core/ModuleInterface.h"
#include "host/file/LumFile.h"
#include "module/ModuleMain.h"
#include "store/ModelRegistry.h"
#include "store/Paths.h"
#include "support/CallRecord.h"
#include "support/LinkedModule.h"
#include "support/WaitFor.h"

namespace {

using testing::Contains;
using testing::ElementsAre;

std::wstring Text(uint32_t command) {
    std::array<wchar_t, kLumModuleTextLength> buffer{};
    EXPECT_EQ(ModuleMain(command, 0, buffer.data()), 1U);
    return buffer.data();
}

TEST(ModuleMain, RefusesCommandsThatItDoesNotKnow) {
    for (const uint32_t command : {0U, 8U, 10U, 0xFFFFFFFFU}) {
        EXPECT_EQ(ModuleMain(command, 0, nullptr), 5U) << command;
    }
}

TEST(ModuleMain, AcknowledgesCommandNineAndDoesNothing) {
    EXPECT_EQ(ModuleMain(9, 0, nullptr), 1U);
    EXPECT_TRUE(ActionDbListActions().empty());
}

TEST(ModuleMain, DescribesItself) {
    EXPECT_EQ(Text(6), L"Event Log Manager module (EventLogManagerModule)");
}

TEST(ModuleMain, AnswersItsVersionWithTheStampOfTheBuild) {
    const std::wstring version = Text(7);
    EXPECT_EQ(version.substr(0, 19), L"11.5.0.121004r - " + version.substr(17, 2));
    // Mmm dd yyyy - hh:mm:ss
    ASSERT_EQ(version.size(), 39U);
    EXPECT_EQ(version.substr(28, 3), L" - ");
    EXPECT_EQ(version[33], L':');
    EXPECT_EQ(version[36], L':');
}

TEST(ModuleMain, RegistersItsFourteenActionsInOrder) {
    LinkedModule host;
    std::vector<std::string> signatures;
    for (const ActionInfo& action : ActionDbListActions()) {
        signatures.emplace_back(action.signature.View());
    }
    EXPECT_THAT(
        signatures,
        ElementsAre(
            "EventLogManagerSetValues (container Values)", "EventLogManagerGetValues ()",
            "EventLogManagerReloadModels ()", "EventLogManagerDeleteModels (container Values)",
            "EventLogManagerGetModelNames ()", "EventLogManagerGetModel (container Values)",
            "EventLogManagerEnableModel (container Values)", "EventLogManagerDisableModel (container Values)",
            "EventLogManagerCreateEvent (container Values)", "EventLogManagerUploadEvents (container Values)",
            "EventLogManagerDeleteEvents (container Values)", "EventLogManagerGetEvents (container Values)",
            "EventLogManagerCheckAlertMinimumGap (container Values)",
            "EventLogManagerCreateAlert (container Values)"));
}

TEST(ModuleMain, BuildsItsPathsBelowTheAgentsDirectories) {
    LinkedModule host;
    LinkedModule::Initialise();
    const std::string scratch = host.Directory().Path();
    EXPECT_EQ(IniFilePath.View(), scratch + "/config/EventLogManager.ini");
    EXPECT_EQ(DataDirectory.View(), scratch + "/data/EventLogManager");
    EXPECT_EQ(DatabasePath.View(), scratch + "/data/EventLogManager/EventLogManager.sqlite3");
    EXPECT_EQ(ModelsDirectory.View(), scratch + "/data/EventLogManager/models/");
}

TEST(ModuleMain, StartsOnAnEmptyDataDirectory) {
    LinkedModule host;
    LinkedModule::Initialise();
    EXPECT_EQ(host.Rows("SELECT name FROM sqlite_master WHERE name IN ('RegisteredModel', 'Scheduler', "
                        "'DatabaseInformation') ORDER BY name"),
              "DatabaseInformation\nRegisteredModel\nScheduler");
    EXPECT_EQ(host.Rows("SELECT count(*) FROM RegisteredModel"), "0");
    EXPECT_EQ(host.Rows("SELECT S_Timestamp FROM Scheduler"), "0");
}

TEST(ModuleMain, TriesEveryStepEvenWithoutADataDirectory) {
    LinkedModule host;
    std::filesystem::remove_all(host.Directory().Path() / "data/EventLogManager");
    host.Directory().Write("data/EventLogManager", "in the way");
    LinkedModule::Initialise();
    const std::vector<std::string> said = host.Log().Said();
    EXPECT_THAT(said, Contains("error LoadRegisteredModels: Failed to load registered models"));
    EXPECT_THAT(said,
                Contains("error LoadUnregisteredModels: Failed to load models, (failed to open directory '" +
                         std::string(ModelsDirectory.View()) + "')"));
}

TEST(ModuleMain, StartsAndStopsItsThreads) {
    LinkedModule host;
    LinkedModule::Initialise();
    LinkedModule::Activate();
    LinkedModule::CleanUp();
    EXPECT_EQ(host.Log().Count("trace ModuleActivate"), 1U);
    EXPECT_EQ(host.Log().Count("trace ModuleCleanup"), 1U);
}

TEST(ModuleMain, StartsAndEndsTheSchedulerBeforeTheProcessor) {
    const LinkedModule module;
    LinkedModule::Initialise();
    const CallRecord record;
    LinkedModule::Activate();
    EXPECT_TRUE(WaitFor([&] { return record.All("pause ").size() == 2; }));
    LinkedModule::CleanUp();
    EXPECT_THAT(record.All("start "), ElementsAre("start scheduler", "start processor"));
    EXPECT_THAT(record.All("cancel "),
                ElementsAre("cancel scheduler 3000 at once", "cancel processor 3000 at once"));
    EXPECT_THAT(record.All("pause "),
                testing::UnorderedElementsAre("pause scheduler 10000", "pause processor 10000"));
}

TEST(ModuleMain, CleansUpThreadsThatWereNeverStarted) {
    LinkedModule host;
    EXPECT_EQ(ModuleMain(5, 0, nullptr), 1U);
    EXPECT_EQ(ModuleMain(2, 0, nullptr), 1U);
    EXPECT_EQ(host.Log().Count("trace Module Unregister starting"), 1U);
}

}  // namespace
