#include "model/CheckModels.h"

#include <cstdint>
#include <memory>
#include <string_view>

#include "host/log/LumDebug.h"
#include "model/Model.h"
#include "model/ModelElement.h"
#include "model/ModuleLog.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "CheckModels");

/// What is said of the first of the model's references that does not hold; empty where all do.
LumString BrokenReference(const Model_t& model) {
    LumString broken;
    std::shared_ptr<Model_t> source;
    if (!ModelCollection.Get(model.GetSource(), source)) {
        broken.Printf("Model '%S' makes reference to unknown model '%S'", model.GetName(), model.GetSource());
        return broken;
    }
    const auto known = [&](const LumString& name) {
        if (source->GetParams().Contains(name)) {
            return true;
        }
        broken.Printf("Model '%S' makes reference to unknown parameter '%S' from model '%S'", model.GetName(),
                      name, model.GetSource());
        return false;
    };
    if (!ForEachParam(model, [&](const ModelParam_t& param, uint32_t) { return known(param.GetSource()); })) {
        return broken;
    }
    std::shared_ptr<ModelParamAgg_t> entry;
    for (uint32_t i = 0; model.GetAggregations().GetAt(i, entry); ++i) {
        if (!known(entry->GetName())) {
            return broken;
        }
    }
    return broken;
}

/// Walks the collection up to the first broken model and removes it; false where there was none to remove.
bool DropFirstBrokenModel() {
    kRoutine.Trace("Entering");
    std::shared_ptr<Model_t> model;
    for (uint32_t i = 0; ModelCollection.GetAt(i, model); ++i) {
        if (model->GetType() == ModelType::kUser) {
            continue;
        }
        const LumString broken = BrokenReference(*model);
        if (!broken.IsEmpty()) {
            kRoutine.Error("%S", broken);
            IncompleteModels.Replace(model);
            return ModelCollection.Remove(model);
        }
    }
    return false;
}

/// Takes the first model that is complete again, or that another one has taken the place of, out of those
/// that are not; false where there is none.
bool TakeBackFirst() {
    std::shared_ptr<Model_t> model;
    for (uint32_t i = 0; IncompleteModels.GetAt(i, model); ++i) {
        const bool isReplaced = ModelCollection.Contains(model->GetName());
        if (isReplaced || BrokenReference(*model).IsEmpty()) {
            if (!isReplaced && ModelCollection.Add(model)) {
                LumRoutine(ModuleDebug, "TakeBackModels")
                    .Print("Model '%S' has everything that it refers to again", model->GetName());
            }
            return IncompleteModels.Remove(model);
        }
    }
    return false;
}

}  // namespace

void CheckModels() {
    // A removal may break the models that referred to the removed one, so each is followed by a walk from the
    // start.
    while (DropFirstBrokenModel()) {
    }
}

void TakeBackModels() {
    // One that is back may be what another one refers to.
    while (TakeBackFirst()) {
    }
}
