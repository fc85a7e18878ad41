#include "events/EventRetention.h"

#include "contract/ContainerKeys.h"
#include "events/Period.h"
#include "events/TaskAction.h"
#include "host/log/LumDebug.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/EventTable.h"

namespace {

/// How many rows the last statement has changed.
int64_t CountChanges(DatabaseScope& scope) {
    int64_t count = 0;
    const GenSqlResult* const rows = scope.Connection().Query("SELECT changes()", true);
    static_cast<void>(rows != nullptr && rows->GetColumn(0, count));  // else 0
    return count;
}

}  // namespace

LumSeconds DeletionCutOff(Policy policy, LumSeconds timestamp, bool scheduled) {
    return scheduled ? PeriodStart(policy, timestamp) : timestamp;
}

bool DeleteEvents(const std::shared_ptr<Model_t>& model, LumSeconds /*previousTimestamp*/,
                  LumSeconds timestamp, bool scheduled) {
    constexpr LumRoutine kRoutine(ModuleDebug, "DeleteEvents");
    kRoutine.Trace("Entering");
    if (model == nullptr) {
        return false;
    }
    const int64_t cutOff = DeletionCutOff(model->GetDeletionPolicy(), timestamp, scheduled);
    LumString statement;
    statement.Printf("DELETE FROM %S WHERE E_Date < %ld;", EventTable(model->GetName()), cutOff);
    DatabaseScope scope(kRoutine);
    if (!scope.IsLocked()) {
        return false;
    }
    const bool deleted = scope.Query(statement) != nullptr;
    const int64_t count = deleted ? CountChanges(scope) : 0;
    scope.Unlock();
    if (!deleted) {
        kRoutine.Error("Failed to delete events for model '%S', SQL error", model->GetName());
        return false;
    }
    model->Deleted().Add(static_cast<uint64_t>(count));
    kRoutine.Trace("Events have been deleted with success for model '%S'", model->GetName());
    return true;
}

uint32_t ActionHandler_EventLogManagerDeleteEvents(LumContainer* container) {
    constexpr LumRoutine kRoutine(ModuleDebug, "ActionHandler_EventLogManagerDeleteEvents");
    return QueueTaskAction(container, kRoutine, [](const Model_t& model, const LumContainer& values) {
        LumSeconds endDate = 0;
        if (!values.GetInt32(keys::kEndDate, endDate)) {
            endDate = LumNow();
        }
        return MakeTask(TaskType::TaskDelete, model.GetName(), 0, endDate, false);
    });
}
