#include "module/ModuleMain.h"

#include <string_view>

#include "admin/ModelListing.h"
#include "admin/ModelState.h"
#include "alerts/AlertCeiling.h"
#include "alerts/Alerts.h"
#include "contract/Actions.h"
#include "events/EventCreation.h"
#include "events/EventQuery.h"
#include "events/EventRetention.h"
#include "events/EventUpload.h"
#include "host/core/ActionDb.h"
#include "host/core/LumAgent.h"
#include "host/core/ModuleInterface.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "model/ModuleLog.h"
#include "module/Configuration.h"
#include "module/ModuleStatus.h"
#include "module/UploadStatus.h"
#include "sched/TaskProcessorThread.h"
#include "sched/TaskSchedulerThread.h"
#include "store/Paths.h"
#include "store/startup/StoreStartup.h"

namespace {

constexpr uint32_t kMajorVersion = 11;
constexpr uint32_t kMinorVersion = 5;
constexpr const char* kRevision = "0";
constexpr const char* kBuildTag = "121004r";

/// How long each thread is waited for at clean-up, in milliseconds.
constexpr uint32_t kCancelWaitMs = 3000;

struct Action {
    const char* name;
    const char* parameters;
    ActionHandler handler;
};

constexpr Action kActions[] = {
    {actions::kSetValues, "(container Values)", ActionHandler_EventLogManagerSetValues},
    {actions::kGetValues, "()", ActionHandler_EventLogManagerGetValues},
    {actions::kReloadModels, "()", ActionHandler_EventLogManagerReloadModels},
    {actions::kDeleteModels, "(container Values)", ActionHandler_EventLogManagerDeleteModels},
    {actions::kGetModelNames, "()", ActionHandler_EventLogManagerGetModelNames},
    {actions::kGetModel, "(container Values)", ActionHandler_EventLogManagerGetModel},
    {actions::kEnableModel, "(container Values)", ActionHandler_EventLogManagerEnableModel},
    {actions::kDisableModel, "(container Values)", ActionHandler_EventLogManagerDisableModel},
    {actions::kCreateEvent, "(container Values)", ActionHandler_EventLogManagerCreateEvent},
    {actions::kUploadEvents, "(container Values)", ActionHandler_EventLogManagerUploadEvents},
    {actions::kDeleteEvents, "(container Values)", ActionHandler_EventLogManagerDeleteEvents},
    {actions::kGetEvents, "(container Values)", ActionHandler_EventLogManagerGetEvents},
    {actions::kCheckAlertMinimumGap, "(container Values)", ActionHandler_EventLogManagerCheckAlertMinimumGap},
    {actions::kCreateAlert, "(container Values)", ActionHandler_EventLogManagerCreateAlert},
};

void ModuleRegister(void* agentHandle) {
    ModuleDebug.SetContext(LumAgentGetDebugContext(agentHandle));
    ModuleDebug.TraceWithNL("Module Register starting");
    for (const Action& action : kActions) {
        // The registry says what it refuses; an action that is missing does not stop the others.
        ActionDbRegisterAction(LumString(action.name) + " " + action.parameters, action.handler, agentHandle);
    }
}

void ModuleUnregister() {
    ModuleDebug.TraceWithNL("Module Unregister starting");
}

void ModuleInitialise() {
    LumRoutine(ModuleDebug, "ModuleInitialise").Trace("Entering");
    LumString configDirectory;
    LumString dataDirectory;
    LumAgentGetConfigDir(configDirectory);
    LumAgentGetDataDir(dataDirectory);
    ModulePaths paths = BuildModulePaths(configDirectory, dataDirectory);
    IniFilePath = std::move(paths.iniFile);
    DataDirectory = std::move(paths.dataDirectory);
    DatabasePath = std::move(paths.database);
    ModelsDirectory = std::move(paths.modelsDirectory);

    ModuleDebug.SetErrorActionInvokeAddress(RaiseAlertOnError);
    PathCreate(DataDirectory);
    PathCreate(ModelsDirectory);

    LoadAlertCeiling();
    LoadConfiguration();
    BringStoreUp();
}

void ModuleActivate() {
    ModuleDebug.TraceWithNL("ModuleActivate");
    BeginUploadStatus();
    SchedulerThread.SetEachCycle(TellHeldBackAlerts);
    ProcessorThread.SetReady(ConfigurationIsKnown);
    static_cast<void>(SchedulerThread.Start(nullptr, nullptr));  // the host learns nothing of it either way
    static_cast<void>(ProcessorThread.Start(nullptr, nullptr));
    BeginModuleStatus();
}

void ModuleCleanup() {
    ModuleDebug.TraceWithNL("ModuleCleanup");
    EndModuleStatus();
    EndUploadStatus();
    SchedulerThread.Cancel(kCancelWaitMs, true);
    ProcessorThread.Cancel(kCancelWaitMs, true);
}

LumString VersionText() {
    LumString text;
    text.Printf("%u.%u.%s.%s - %s - %s", kMajorVersion, kMinorVersion, kRevision, kBuildTag, __DATE__,
                __TIME__);
    return text;
}

}  // namespace

uint32_t ModuleMain(uint32_t command, uint32_t /*word*/, void* pointer) {
    switch (static_cast<LumModuleCommand>(command)) {
        case LumModuleCommand::kRegister:
            ModuleRegister(pointer);
            return kLumModuleDone;
        case LumModuleCommand::kUnregister:
            ModuleUnregister();
            return kLumModuleDone;
        case LumModuleCommand::kInitialise:
            ModuleInitialise();
            return kLumModuleDone;
        case LumModuleCommand::kActivate:
            ModuleActivate();
            return kLumModuleDone;
        case LumModuleCommand::kCleanup:
            ModuleCleanup();
            return kLumModuleDone;
        case LumModuleCommand::kGetDescription:
            LumModuleAnswer(ModuleDebug.GetDescription(), pointer);
            return kLumModuleDone;
        case LumModuleCommand::kGetVersion:
            LumModuleAnswer(VersionText(), pointer);
            return kLumModuleDone;
        case LumModuleCommand::kAcknowledged:
            return kLumModuleDone;
    }
    return kLumModuleUnknownCommand;
}
