#include "events/EventRetention.h"

#include <ctime>
#include <string_view>

#include "contract/ContainerKeys.h"
#include "events/Period.h"
#include "events/TaskAction.h"
#include "host/log/LumDebug.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"

int32_t DeletionCutOff(Policy policy, uint32_t timestamp, bool scheduled) {
    const auto time = static_cast<int32_t>(timestamp);
    return scheduled ? static_cast<int32_t>(PeriodStart(policy, time)) : time;
}

bool DeleteEvents(const std::shared_ptr<Model_t>& model, uint32_t /*previousTimestamp*/, uint32_t timestamp,
                  bool scheduled) {
    constexpr std::string_view kRoutine = "DeleteEvents";
    ModuleDebug.TraceWithNL("%S: Entering", kRoutine);
    if (model == nullptr) {
        return false;
    }
    const int64_t cutOff = DeletionCutOff(model->GetDeletionPolicy(), timestamp, scheduled);
    LumString statement;
    statement.Printf("DELETE FROM Event_%S WHERE E_Date < %ld;", model->GetName(), cutOff);
    DatabaseScope scope(kRoutine);
    if (!scope.IsLocked()) {
        return false;
    }
    const bool deleted = scope.Query(statement) != nullptr;
    scope.Unlock();
    if (!deleted) {
        ModuleDebug.ErrorWithNL("%S: Failed to delete events for model '%S', SQL error", kRoutine,
                                model->GetName());
        return false;
    }
    ModuleDebug.TraceWithNL("%S: Events have been deleted with success for model '%S'", kRoutine,
                            model->GetName());
    return true;
}

uint32_t ActionHandler_EventLogManagerDeleteEvents(LumContainer* container) {
    constexpr std::string_view kRoutine = "ActionHandler_EventLogManagerDeleteEvents";
    return QueueTaskAction(container, kRoutine, [](const Model_t& model, const LumContainer& values) {
        int32_t endDate = 0;
        if (!values.GetInt32(keys::kEndDate, endDate)) {
            endDate = static_cast<int32_t>(std::time(nullptr));
        }
        return MakeTask(TaskType::TaskDelete, model.GetName(), 0, static_cast<uint32_t>(endDate), false);
    });
}
