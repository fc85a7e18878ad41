#include "admin/ModelState.h"

#include <memory>
#include <string_view>
#include <utility>

#include "contract/ContainerKeys.h"
#include "host/container/LumContainer.h"
#include "host/core/ActionFrame.h"
#include "host/log/LumDebug.h"
#include "model/CheckModels.h"
#include "model/Model.h"
#include "model/ModelArguments.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/ModelRegistry.h"

namespace {

using ModelMessage = LumFormat<std::string_view, LumString>;

/// Where switching on and switching off differ.
struct Switch {
    std::string_view routine;
    bool enabled;
    LumFormat<LumString> statement;
    ModelMessage done;
    ModelMessage failed;
};

constexpr Switch kEnable{"ActionHandler_EventLogManagerEnableModel", true,
                         "UPDATE RegisteredModel SET RM_Enabled = 1 WHERE RM_ModelName = '%S';",
                         "%S: Model '%S' has been enabled with success", "%S: Failed to enable model '%S'"};
constexpr Switch kDisable{"ActionHandler_EventLogManagerDisableModel", false,
                          "UPDATE RegisteredModel SET RM_Enabled = 0 WHERE RM_ModelName = '%S';",
                          "%S: Model '%S' has been disabled with success",
                          "%S: Failed to disable model '%S'"};

uint32_t SetEnabled(Model_t& model, const Switch& to) {
    if (model.IsEnabled() == to.enabled) {
        return kActionDone;
    }
    LumString statement;
    statement.Printf(to.statement, model.GetName());
    DatabaseScope scope(to.routine);
    if (!scope.IsLocked()) {
        return kActionFailed;
    }
    const bool stored = scope.Query(statement) != nullptr;
    scope.Unlock();
    if (!stored) {
        ModuleDebug.ErrorWithNL(to.failed, to.routine, model.GetName());
        return kActionFailed;
    }
    model.SetEnabled(to.enabled);
    ModuleDebug.PrintWithNL(to.done, to.routine, model.GetName());
    return kActionDone;
}

uint32_t SwitchModel(LumContainer* container, const Switch& to) {
    ModuleDebug.PrintWithNL("%S: Entering", to.routine);
    return ActionWithValues(container, [&to](const LumContainer& values, LumContainer& /*answer*/) {
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
    constexpr std::string_view kRoutine = "ActionHandler_EventLogManagerDeleteModel";
    ModuleDebug.PrintWithNL("%S: Entering ", kRoutine);
    return ActionWithValues(container, [=](const LumContainer& values, LumContainer& /*answer*/) {
        LumString name;
        if (!values.GetString(keys::kModelName, name)) {
            ModuleDebug.ErrorWithNL("%S: Failed to get model name", kRoutine);
            return kActionFailed;
        }
        if (!RemoveRegisteredModel(name)) {
            return kActionFailed;
        }
        ModuleDebug.PrintWithNL("%S: Model '%S' has been deleted with success", kRoutine, name);
        return kActionDone;
    });
}

uint32_t ActionHandler_EventLogManagerDeleteModels(LumContainer* container) {
    ModuleDebug.PrintWithNL("%S: Entering", std::string_view("ActionHandler_EventLogManagerDeleteModels"));
    return ActionWithValues(container, [](const LumContainer& values, LumContainer& /*answer*/) {
        LumString name;
        for (uint32_t i = 0; values.GetString(keys::kModelName, name, i); ++i) {
            LumContainer one;
            one.SetString(keys::kModelName, name);
            LumContainer request;
            request.SetContainer(keys::kValues, std::move(one));
            // A model that cannot be deleted keeps none of the others.
            static_cast<void>(ActionHandler_EventLogManagerDeleteModel(&request));
        }
        return kActionDone;
    });
}

uint32_t ActionHandler_EventLogManagerReloadModels(LumContainer* container) {
    constexpr std::string_view kRoutine = "ActionHandler_EventLogManagerReloadModels";
    ModuleDebug.PrintWithNL("%S: Entering ", kRoutine);
    LoadUnregisteredModels();
    CheckModels();
    ModuleDebug.PrintWithNL("%S: Models have been reloaded with success", kRoutine);
    if (container != nullptr) {
        container->Clear();
    }
    return kActionDone;
}
