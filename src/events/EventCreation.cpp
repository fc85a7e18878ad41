#include "events/EventCreation.h"

#include <cstddef>
#include <ctime>
#include <memory>
#include <string>
#include <utility>

#include "contract/ContainerKeys.h"
#include "host/core/ActionFrame.h"
#include "host/log/LumDebug.h"
#include "host/text/LumFormat.h"
#include "host/time/LumTime.h"
#include "model/Model.h"
#include "model/ModelArguments.h"
#include "model/ModuleLog.h"
#include "model/ParamTypes.h"
#include "store/DatabaseScope.h"
#include "store/EventTable.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "ActionHandler_EventLogManagerCreateEvent");

int32_t ReadIdOrZero(const LumContainer& params, const char* key) {
    int32_t id = 0;
    static_cast<void>(params.GetInt32(key, id));  // an event without an id belongs to id 0
    return id;
}

/// The INSERT in the making: its head, which names the columns, and its values grow side by side.
class InsertText {
public:
    explicit InsertText(const LumString& modelName) {
        head_.reserve(kUsualLength);
        values_.reserve(kUsualLength);
        head_.append("INSERT INTO ").append(kEventTablePrefix).append(modelName.View());
        head_.append(" (").append(kEventColumns);
    }

    void AddFixedValues(const LumContainer& params) {
        const LumSeconds date = LumNow();
        const int32_t deviceId = ReadIdOrZero(params, keys::kEventDeviceId);
        const int32_t groupId = ReadIdOrZero(params, keys::kEventGroupId);
        // The offset is that of a second look at the clock.
        const int32_t offset = LumGmtOffset(std::time(nullptr));
        values_.append(") VALUES (");
        LumAppendNumber(values_, date);
        for (const int32_t value : {offset, deviceId, groupId}) {
            values_.append(", ");
            LumAppendNumber(values_, value);
        }
    }

    /// False where `params` holds no value for the parameter and the parameter has no default.
    bool AddParam(const ModelParam_t& param, const LumContainer& params) {
        head_.append(", ").append(kParamColumnPrefix).append(param.GetName().View());
        const ParamTypeTraits* const traits = FindParamType(param.GetType());
        if (traits == nullptr) {
            return true;  // a column without a value: the database refuses the row
        }
        values_.append(", ");
        if (traits->appendValue(params, param.GetName(), values_)) {
            return true;
        }
        if (param.GetDefault().IsEmpty()) {
            return false;
        }
        traits->appendDefault(param.GetDefault(), values_);
        return true;
    }

    /// The whole statement, once.
    [[nodiscard]] LumString Take() { return LumString(std::move(head_.append(values_).append(");"))); }

private:
    /// Enough for most events; longer ones grow as they need.
    static constexpr std::size_t kUsualLength = 512;

    std::string head_;
    std::string values_;
};

uint32_t StoreEvent(const Model_t& model, const LumContainer& params) {
    InsertText insert(model.GetName());
    insert.AddFixedValues(params);
    const bool complete = ForEachParam(model, [&](const ModelParam_t& param, uint32_t) {
        const bool added = insert.AddParam(param, params);
        if (!added) {
            kRoutine.Error("Failed to get value for parameter '%S' of model '%S'", param.GetName(),
                           model.GetName());
        }
        return added;
    });
    if (!complete) {
        return kActionFailed;
    }
    const LumString statement = insert.Take();
    LumCounter& stored = model.Stored();  // after the statement nothing may fail any more
    DatabaseScope scope(kRoutine, DatabaseScope::Durability::kCaller);
    if (!scope.IsLocked() || scope.Query(statement) == nullptr) {
        return kActionFailed;
    }
    scope.Unlock();
    stored.Add();
    kRoutine.Trace("Event created with success for model '%S'", model.GetName());
    return kActionDone;
}

uint32_t CreateEvent(const LumContainer& values) {
    const std::shared_ptr<Model_t> model = FindNamedModel(values, kRoutine);
    if (model == nullptr) {
        return kActionRefused;
    }
    const LumString& name = model->GetName();
    if (!model->IsEnabled()) {
        kRoutine.Trace("Event refers to disabled model '%S'", name);
        return kActionDone;
    }
    LumContainer params;
    if (!values.GetContainer(keys::kEventParams, params)) {
        kRoutine.Error("Failed to get parameters for model '%S'", name);
        return kActionRefused;
    }
    return StoreEvent(*model, params);
}

}  // namespace

uint32_t ActionHandler_EventLogManagerCreateEvent(LumContainer* container) {
    kRoutine.Trace("Entering");
    return ActionWithValues(
        container, [](const LumContainer& values, LumContainer& /*answer*/) { return CreateEvent(values); });
}
