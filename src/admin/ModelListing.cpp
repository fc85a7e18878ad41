#include "admin/ModelListing.h"

#include <memory>
#include <utility>

#include "contract/ContainerKeys.h"
#include "host/container/LumContainer.h"
#include "host/core/ActionFrame.h"
#include "host/log/LumDebug.h"
#include "model/Model.h"
#include "model/ModelArguments.h"
#include "model/ModelElement.h"
#include "model/ModuleLog.h"

namespace {

LumContainer DescribeModel(const Model_t& model) {
    LumContainer description;
    description.SetContainer(keys::kModelVars, DescribeParams(model));
    description.SetString(keys::kModelName, model.GetName());
    description.SetString(keys::kModelClass, model.GetClass());
    description.SetString(keys::kModelSeverity, model.GetSeverity());
    description.SetString(keys::kModelNote, model.GetNote());
    return description;
}

}  // namespace

uint32_t ActionHandler_EventLogManagerGetModelNames(LumContainer* container) {
    LumRoutine(ModuleDebug, "ActionHandler_EventLogManagerGetModelNames").Print("Entering");
    if (container == nullptr) {
        return kActionRefused;
    }
    LumContainer result;
    std::shared_ptr<Model_t> model;
    for (uint32_t i = 0; ModelCollection.GetAt(i, model); ++i) {
        result.SetString(keys::kModelName, model->GetName(), i);
        result.SetString(keys::kModelClass, model->GetClass(), i);
        result.SetString(keys::kModelNote, model->GetNote(), i);
        result.SetBool(keys::kModelEnabled, model->IsEnabled(), i);
    }
    container->Clear();
    container->SetContainer(keys::kResult, std::move(result));
    return kActionDone;
}

uint32_t ActionHandler_EventLogManagerGetModel(LumContainer* container) {
    constexpr LumRoutine kRoutine(ModuleDebug, "ActionHandler_EventLogManagerGetModel");
    kRoutine.Print("Entering");
    return ActionWithValues(container, [=](const LumContainer& values, LumContainer& answer) {
        const std::shared_ptr<Model_t> model = FindNamedModel(values, kRoutine);
        if (model == nullptr) {
            return kActionRefused;
        }
        LumContainer result;
        result.SetContainer(keys::kModelDef, DescribeModel(*model));
        answer.SetContainer(keys::kResult, std::move(result));
        return kActionDone;
    });
}
