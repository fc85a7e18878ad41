// A whole module: it registers one action, "GreetingSay", which greets whom it is told to and makes an event
// of it.

#include <cstdint>
#include <utility>

#include "contract/Actions.h"
#include "contract/ContainerKeys.h"
#include "contract/Statuses.h"
#include "host/container/LumContainer.h"
#include "host/core/ActionDb.h"
#include "host/core/ActionFrame.h"
#include "host/core/LumAgent.h"
#include "host/core/ModuleInterface.h"
#include "host/log/LumDebug.h"

namespace {

LumDebug GreetingDebug("Greeting", "Example module that greets");

/// Asks the event log for one event of the model Greeting; its status says whether it is stored.
uint32_t StoreGreeting(const LumString& name) {
    LumContainer params;
    params.SetString("Name", name);
    params.SetInt32("Length", static_cast<int32_t>(name.GetLength()));
    LumContainer values;
    values.SetString(keys::kModelName, "Greeting");
    values.SetContainer(keys::kEventParams, std::move(params));
    LumContainer container;
    container.SetContainer(keys::kValues, std::move(values));
    uint32_t status = kActionFailed;
    return ActionDbCallAction(actions::kCreateEvent, container, status) ? status : kActionFailed;
}

/// Takes "Values/Name" and answers "Result/Text". Runs on the caller's thread, several at once.
uint32_t ActionHandler_GreetingSay(LumContainer* container) {
    return ActionWithValues(container, [](const LumContainer& values, LumContainer& answer) {
        LumString name;
        if (!values.GetString("Name", name)) {
            GreetingDebug.WarningWithNL("GreetingSay: there is no name");
            return kActionRefused;
        }
        if (const uint32_t status = StoreGreeting(name); status != kActionDone) {
            return status;
        }
        LumContainer result;
        result.SetString("Text", LumString("Hello, ") + name);
        answer.SetContainer(keys::kResult, std::move(result));
        return kActionDone;
    });
}

}  // namespace

extern "C" LUM_API uint32_t ModuleMain(uint32_t command, uint32_t /*word*/, void* pointer) {
    switch (static_cast<LumModuleCommand>(command)) {
        case LumModuleCommand::kRegister:
            GreetingDebug.SetContext(LumAgentGetDebugContext(pointer));
            ActionDbRegisterAction("GreetingSay (container Values)", ActionHandler_GreetingSay, pointer);
            return kLumModuleDone;
        case LumModuleCommand::kGetDescription:
            LumModuleAnswer(GreetingDebug.GetDescription(), pointer);
            return kLumModuleDone;
        case LumModuleCommand::kGetVersion:
            LumModuleAnswer(LumString("1.0.0"), pointer);
            return kLumModuleDone;
        case LumModuleCommand::kUnregister:
        case LumModuleCommand::kInitialise:
        case LumModuleCommand::kActivate:
        case LumModuleCommand::kCleanup:
        case LumModuleCommand::kAcknowledged:
            return kLumModuleDone;
    }
    return kLumModuleUnknownCommand;
}
