#include "machine/ModuleMain.h"

#include <ctime>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "contract/Directories.h"
#include "host/core/LumAgent.h"
#include "host/core/ModuleInterface.h"
#include "host/file/LumFile.h"
#include "machine/Feed.h"
#include "machine/Recorder.h"
#include "machine/Settings.h"
#include "machine/ShippedModels.h"
#include "machine/Sources.h"
#include "machine/source/MachineLog.h"

namespace {

constexpr char kVersion[] = "1.0.0";
constexpr uint32_t kEndMs = 3000;

Recorder MachineRecorder;

void MachineInitialise() {
    constexpr std::string_view kRoutine = "MachineInitialise";
    MachineDebug.TraceWithNL("%S: Entering", kRoutine);
    LumString configDirectory;
    LumString dataDirectory;
    LumAgentGetConfigDir(configDirectory);
    LumAgentGetDataDir(dataDirectory);
    const Settings settings(configDirectory + kMachineEventsName + ".ini", std::time(nullptr));
    const LumString ownDirectory = dataDirectory + kMachineEventsName + "/";
    if (!PathCreate(ownDirectory)) {
        MachineDebug.ErrorWithNL("%S: Failed to make the directory %S", kRoutine, ownDirectory);
    }
    std::vector<std::unique_ptr<Feed>> feeds;
    std::vector<const char*> wanted;
    for (std::unique_ptr<Source>& source : MakeSources(settings)) {
        for (const char* const model : source->GetModels()) {
            wanted.push_back(model);
        }
        const LumString positionPath = ownDirectory + source->GetName() + ".position";
        feeds.push_back(std::make_unique<Feed>(std::move(source), positionPath, settings.RetryMs()));
    }
    BringModels(dataDirectory + kEventLogManagerName + "/" + kModelsDirectoryName + "/",
                ownDirectory + "models-dropped", wanted);
    MachineRecorder.SetFeeds(std::move(feeds));
}

void MachineActivate() {
    if (!MachineRecorder.Begin()) {
        MachineDebug.ErrorWithNL("%S: Failed to start the thread", std::string_view("MachineActivate"));
    }
}

void MachineCleanUp() {
    if (!MachineRecorder.End(kEndMs)) {
        MachineDebug.WarningWithNL("%S: The thread takes longer than %u ms to end",
                                   std::string_view("MachineCleanUp"), kEndMs);
    }
}

}  // namespace

uint32_t ModuleMain(uint32_t command, uint32_t /*word*/, void* pointer) {
    switch (static_cast<LumModuleCommand>(command)) {
        case LumModuleCommand::kRegister:
            MachineDebug.SetContext(LumAgentGetDebugContext(pointer));
            MachineDebug.TraceWithNL("Module Register starting");
            return kLumModuleDone;
        case LumModuleCommand::kUnregister:
            MachineDebug.TraceWithNL("Module Unregister starting");
            return kLumModuleDone;
        case LumModuleCommand::kInitialise:
            MachineInitialise();
            return kLumModuleDone;
        case LumModuleCommand::kActivate:
            MachineActivate();
            return kLumModuleDone;
        case LumModuleCommand::kCleanup:
            MachineCleanUp();
            return kLumModuleDone;
        case LumModuleCommand::kAcknowledged:
            return kLumModuleDone;
        case LumModuleCommand::kGetDescription:
            LumModuleAnswer(MachineDebug.GetDescription(), pointer);
            return kLumModuleDone;
        case LumModuleCommand::kGetVersion:
            LumModuleAnswer(LumString(kVersion), pointer);
            return kLumModuleDone;
    }
    return kLumModuleUnknownCommand;
}
