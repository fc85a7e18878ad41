#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "machine/ModuleMain.h"
#include "support/ResourceLimit.h"
#include "support/TestAgent.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

/// The module in the test's own process, as the agent drives it, without a source to read and without an
/// event log.
class ModuleMainTest : public testing::Test, protected TestAgent {
protected:
    ModuleMainTest() {
        std::string ini;
        for (const char* const source :
             {"Packages", "Sessions", "Machine", "Services", "Disks", "Load", "Devices"}) {
            ini += "[" + std::string(source) + "]\nEnabled = 0\n";
        }
        Directory().Write("config/MachineEvents.ini", ini);
        Do(LumModuleCommand::kRegister, &machine_);
    }
    ~ModuleMainTest() override {
        Do(LumModuleCommand::kCleanup);
        Do(LumModuleCommand::kUnregister);
    }

    static void Do(LumModuleCommand command, void* pointer = nullptr) {
        Command(ModuleMain, command, pointer);
    }
    [[nodiscard]] std::vector<std::string> MachineSaid() const { return machineLog_.Said(); }

private:
    LumAgentHandle machine_{"MachineEvents"};
    LogReader machineLog_{Directory() / "log", "MachineEvents"};
};

TEST_F(ModuleMainTest, KnowsItsCommandsAlone) {
    Do(LumModuleCommand::kInitialise);
    Do(LumModuleCommand::kActivate);
    Do(LumModuleCommand::kAcknowledged);
    wchar_t text[kLumModuleTextLength] = {};
    Do(LumModuleCommand::kGetVersion, text);
    EXPECT_EQ(std::wstring(text), L"1.0.0");
    Do(LumModuleCommand::kGetDescription, text);
    EXPECT_EQ(std::wstring(text), L"Machine events module (MachineEventsModule)");
    EXPECT_EQ(ModuleMain(8, 0, nullptr), kLumModuleUnknownCommand);
    EXPECT_THAT(MachineSaid(),
                ElementsAre("warning BringModels: The event log does not answer, so nothing is dropped"));
}

TEST_F(ModuleMainTest, SaysThatItsDirectoryCannotBeMade) {
    const std::string path = Directory().Write("data/MachineEvents", "a file in the way");
    Do(LumModuleCommand::kInitialise);
    EXPECT_THAT(MachineSaid(),
                Contains("error MachineInitialise: Failed to make the directory " + path + "/"));
}

TEST_F(ModuleMainTest, SaysThatItsThreadCannotBeStarted) {
    Do(LumModuleCommand::kInitialise);
    {
        const ResourceLimit noFiles(RLIMIT_NOFILE, 0);
        Do(LumModuleCommand::kActivate);
    }
    EXPECT_THAT(MachineSaid(), Contains(HasSubstr("error MachineActivate: Failed to start the thread")));
}

}  // namespace
