#include "admin/ModelState.h"

#include <memory>
#include <utility>

#include "contract/ContainerKeys.h"
#include "host/container/LumContainer.h"
#include "host/core/ActionFrame.h"
#include "host/core/LumStartup.h"
#include "host/log/LumDebug.h"
#include "model/CheckModels.h"
#include "model/Model.h"
#include "model/ModelArguments.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/EventTable.h"
#include "store/ModelRegistry.h"
#include "store/startup/StoreStartup.h"

namespace {

using ModelMessage = LumFormat<LumString>;

/// Where switching on and switching off differ.
struct Switch {
    LumRoutine routine;
    bool enabled = false;
    ModelMessage done;
    ModelMessage failed;
};

constexpr Switch kEnable{LumRoutine(ModuleDebug, "ActionHandler_EventLogManagerEnableModel"), true,
                         "Model '%S' has been enabled with success", "Failed to enable model '%S'"};
constexpr Switch kDisable{LumRoutine(ModuleDebug, "ActionHandler_EventLogManagerDisableModel"), false,
                          "Model '%S' has been disabled with success", "Failed to disable model '%S'"};

uint32_t SetEnabled(Model_t& model, const Switch& to) {
    if (model.IsEnabled() == to.enabled) {
        return kActionDone;
    }
    const LumString statement = UpdateEnabled(model.GetName(), to.enabled);
    DatabaseScope scope(to.routine);
    if (!scope.IsLocked()) {
        return kActionFailed;
    }
    // The flag follows the row before the next statement can: what comes last in one comes last in the other.
    const bool stored = scope.Query(statement) != nullptr;
    if (stored) {
        model.SetEnabled(to.enabled);
    }
    scope.Unlock();
    if (!stored) {
        to.routine.Error(to.failed, model.GetName());
        return kActionFailed;
    }
    to.routine.Print(to.done, model.GetName());
    return kActionDone;
}

uint32_t SwitchModel(LumContainer* container, const Switch& to) {
    to.routine.Print("Entering");
    return ActionWithValues(container, [&to](const LumContainer& values, LumContainer& /*answer*/) {
        // A definition that is dropped again would put another model in its place meanwhile.
        const LumMutexLock wholeStep(RegistryMutex);
        const std::shared_ptr<Model_t> model = FindNamedModel(values, to.routine);
        return model != nullptr ? SetEnabled(*model, to) : kActionRefused;
    });
}

}  // namespace

uint32_t ActionHandler_EventLogManagerEnableModel(LumContainer* container) {
    return SwitchModel(container, kEnable);
}

uint32_t ActionHandler_EventLogManagerDisableModel(LumContainer* container) {
    return SwitchModel(container, kDisable);
}

uint32_t ActionHandler_EventLogManagerDeleteModel(LumContainer* container) {
    constexpr LumRoutine kRoutine(ModuleDebug, "ActionHandler_EventLogManagerDeleteModel");
    kRoutine.Print("Entering ");
    return ActionWithValues(container, [=](const LumContainer& values, LumContainer& /*answer*/) {
        LumString name;
        if (!values.GetString(keys::kModelName, name)) {
            kRoutine.Error("Failed to get model name");
            return kActionFailed;
        }
        if (!RemoveRegisteredModel(name)) {
            return kActionFailed;
        }
        kRoutine.Print("Model '%S' has been deleted with success", name);
        return kActionDone;
    });
}

uint32_t ActionHandler_EventLogManagerDeleteModels(LumContainer* container) {
    constexpr LumRoutine kRoutine(ModuleDebug, "ActionHandler_EventLogManagerDeleteModels");
    kRoutine.Print("Entering");
    return ActionWithValues(container, [=](const LumContainer& values, LumContainer& /*answer*/) {
        LumString name;
        for (uint32_t i = 0; values.GetString(keys::kModelName, name, i); ++i) {
            if (LumStopRequested()) {
                kRoutine.Warning("The agent stops: model '%S' and those named after it are not deleted",
                                 name);
                break;
            }
            LumContainer one;
            one.SetString(keys::kModelName, name);
            LumContainer request;
            request.SetContainer(keys::kValues, std::move(one));
            // A model that cannot be deleted does not stop the others.
            static_cast<void>(ActionHandler_EventLogManagerDeleteModel(&request));
        }
        return kActionDone;
    });
}

uint32_t ActionHandler_EventLogManagerReloadModels(LumContainer* container) {
    constexpr LumRoutine kRoutine(ModuleDebug, "ActionHandler_EventLogManagerReloadModels");
    kRoutine.Print("Entering ");
    bool mayTakeIn = false;
    {
        const LumMutexLock wholeStep(RegistryMutex);
        mayTakeIn = KeepStoreUp();
        if (mayTakeIn) {
            LoadUnregisteredModels();
        }
        TakeBackModels();
        CheckModels();
    }
    if (mayTakeIn) {
        kRoutine.Print("Models have been reloaded with success");
    } else {
        kRoutine.Error(
            "Dropped definitions wait, as the registered models are not loaded or an upgrade is outstanding");
    }
    const uint32_t status = AfterDurable(kActionDone);
    if (container != nullptr && status == kActionDone) {
        container->Clear();
    }
    return status;
}
