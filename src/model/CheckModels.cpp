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

/// True where everything that `model` refers to is there; else the first broken reference is reported.
bool ReferencesHold(const Model_t& model) {
    std::shared_ptr<Model_t> source;
    if (!ModelCollection.Get(model.GetSource(), source)) {
        kRoutine.Error("Model '%S' makes reference to unknown model '%S'", model.GetName(),
                       model.GetSource());
        return false;
    }
    const auto known = [&](const LumString& name) {
        if (source->GetParams().Contains(name)) {
            return true;
        }
        kRoutine.Error("Model '%S' makes reference to unknown parameter '%S' from model '%S'",
                       model.GetName(), name, model.GetSource());
        return false;
    };
    if (!ForEachParam(model, [&](const ModelParam_t& param, uint32_t) { return known(param.GetSource()); })) {
        return false;
    }
    std::shared_ptr<ModelParamAgg_t> entry;
    for (uint32_t i = 0; model.GetAggregations().GetAt(i, entry); ++i) {
        if (!known(entry->GetName())) {
            return false;
        }
    }
    return true;
}

/// Walks the collection up to the first broken model and removes it; false where there was none to remove.
bool DropFirstBrokenModel() {
    kRoutine.Trace("Entering");
    std::shared_ptr<Model_t> model;
    for (uint32_t i = 0; ModelCollection.GetAt(i, model); ++i) {
        if (model->GetType() != ModelType::kUser && !ReferencesHold(*model)) {
            return ModelCollection.Remove(model);
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
