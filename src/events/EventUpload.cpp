#include "events/EventUpload.h"

#include <algorithm>

#include "contract/ContainerKeys.h"
#include "events/TaskAction.h"
#include "host/core/FileStoreAction.h"
#include "host/log/LumDebug.h"
#include "model/ModelArguments.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "UploadEvents");
constexpr const char* kFileKind = "EventLogManagerEvents";
constexpr int32_t kFilePriority = 100;

/// The columns before the parameters: date, offset, device id, group id.
constexpr uint32_t kFixedColumns = 4;

LumContainer DescribeModel(const Model_t& model) {
    LumContainer description;
    description.SetString(keys::kModelName, model.GetName());
    description.SetString(keys::kModelChecksum, model.GetChecksum());
    description.SetContainer(keys::kModelVars, DescribeParams(model));
    return description;
}

/// Copies an integer column of the selected row to `key`; true where it is not 0.
bool CopyInteger(const GenSqlResult& rows, uint32_t column, LumContainer& file, const char* key,
                 uint32_t index) {
    const int32_t value = ReadInt32(rows, column);
    file.SetInt32(key, value, index);
    return value != 0;
}

/// Stores that the window is done with and, with `reads`, reads its events; null where either failed. There
/// is no transaction around the two: what is stored stays, so that no event leaves twice.
GenSqlResult* ConsumeWindow(DatabaseScope& scope, const Model_t& model, EventWindow window, bool reads) {
    GenSqlResult* const updated = scope.Query(UpdateLastUpload(model.GetName(), window.end));
    return updated != nullptr && reads ? scope.Query(BuildUpload(model, window)) : updated;
}

void LogNothing(const Model_t& model) {
    kRoutine.Trace("Nothing to upload for model '%S'", model.GetName());
}

void Send(const Model_t& model, GenSqlResult& rows) {
    if (rows.GetRowCount() == 0) {
        LogNothing(model);
        return;
    }
    const UploadFiles files(model);
    LumContainer file;
    for (uint32_t sent = 0; sent < rows.GetRowCount();) {
        sent += files.Fill(rows, sent, file);
        FileStoreHandOver(file, kFileKind, kFilePriority);
    }
    kRoutine.Trace("Events have been uploaded with success for model '%S'", model.GetName());
}

}  // namespace

std::optional<EventWindow> UploadWindow(Policy policy, LumSeconds start, LumSeconds end, bool scheduled,
                                        LumSeconds last) {
    const EventWindow window{std::max(start, last), scheduled ? PeriodStart(policy, end) : end};
    return window.end > last ? std::optional(window) : std::nullopt;
}

LumString BuildUpload(const Model_t& model, EventWindow window) {
    LumString columns(kEventColumns);
    AppendParamColumns(columns, model);
    LumString when;
    when.Printf("E_Date >= %ld AND E_Date < %ld", int64_t{window.start}, int64_t{window.end});
    LumString statement;
    statement.Printf("SELECT %S FROM EVENT_%S WHERE %S;", columns, model.GetName(), when);
    return statement;
}

UploadFiles::UploadFiles(const Model_t& model)
    : description_(DescribeModel(model)), params_(model, kFixedColumns) {}

uint32_t UploadFiles::Fill(GenSqlResult& rows, uint32_t first, LumContainer& file) const {
    file.Clear();
    file.SetContainer(keys::kModelDef, description_);
    bool hasDeviceId = false;
    bool hasGroupId = false;
    uint32_t count = 0;
    for (; count < kUploadFileEvents && rows.SelectRow(first + count); ++count) {
        CopyInteger(rows, 0, file, keys::kEventDate, count);
        CopyInteger(rows, 1, file, keys::kEventGmtOffset, count);
        hasDeviceId |= CopyInteger(rows, 2, file, keys::kEventDeviceId, count);
        hasGroupId |= CopyInteger(rows, 3, file, keys::kEventGroupId, count);
        params_.Copy(rows, file, count);
    }
    if (!hasDeviceId) {
        file.ClearName(keys::kEventDeviceId);
    }
    if (!hasGroupId) {
        file.ClearName(keys::kEventGroupId);
    }
    return count;
}

bool UploadEvents(const std::shared_ptr<Model_t>& model, LumSeconds start, LumSeconds end, bool scheduled) {
    kRoutine.Trace("Entering");
    if (model == nullptr) {
        return false;
    }
    const std::optional<EventWindow> window =
        UploadWindow(model->GetUploadPolicy(), start, end, scheduled, model->GetLastUploadTime());
    if (!window.has_value()) {
        LogNothing(*model);
        return true;
    }
    const LumString& name = model->GetName();
    const bool uploadEnabled = UploadEnabled.load(std::memory_order_relaxed);
    const bool modelEnabled = model->IsEnabled();

    DatabaseScope scope(kRoutine);
    if (!scope.IsLocked()) {
        return false;
    }
    GenSqlResult* const rows = ConsumeWindow(scope, *model, *window, uploadEnabled && modelEnabled);
    if (rows == nullptr) {
        scope.Unlock();
        kRoutine.Error("Failed to upload events for model '%S', SQL error", name);
        return false;
    }
    model->SetLastUploadTime(window->end);
    scope.Unlock();

    if (!uploadEnabled) {
        kRoutine.Trace("Upload is disabled, ignoring events for model '%S'", name);
    } else if (!modelEnabled) {
        kRoutine.Trace("Ignoring events for disabled model '%S'", name);
    } else {
        Send(*model, *rows);
    }
    return true;
}

uint32_t ActionHandler_EventLogManagerUploadEvents(LumContainer* container) {
    constexpr LumRoutine kActionRoutine(ModuleDebug, "ActionHandler_EventLogManagerUploadEvents");
    return QueueTaskAction(container, kActionRoutine,
                           [](const Model_t& model, const LumContainer& /*values*/) {
                               return MakeTask(TaskType::TaskUpload, model.GetName(),
                                               model.GetLastUploadTime(), LumNow(), false);
                           });
}
