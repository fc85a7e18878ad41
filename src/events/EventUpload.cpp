#include "events/EventUpload.h"

#include <algorithm>
#include <ctime>
#include <string_view>

#include "contract/ContainerKeys.h"
#include "events/TaskAction.h"
#include "host/core/FileStoreAction.h"
#include "host/log/LumDebug.h"
#include "model/ModelArguments.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"

namespace {

constexpr std::string_view kRoutine = "UploadEvents";
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
    int64_t stored = 0;
    static_cast<void>(rows.GetColumn(column, stored));  // the statement names the column
    const auto value = static_cast<int32_t>(stored);
    file.SetInt32(key, value, index);
    return value != 0;
}

/// Stores that the window is done with and, with `reads`, reads its events; null where either failed. There
/// is no transaction around the two: what is stored stays, so that no event leaves twice.
GenSqlResult* ConsumeWindow(DatabaseScope& scope, const Model_t& model, EventWindow window, bool reads) {
    LumString update;
    update.Printf("UPDATE RegisteredModel SET RM_LastUploadTimestamp = %ld WHERE RM_ModelName = '%S';",
                  int64_t{window.end}, model.GetName());
    GenSqlResult* const updated = scope.Query(update);
    return updated != nullptr && reads ? scope.Query(BuildUpload(model, window)) : updated;
}

void LogNothing(const Model_t& model) {
    ModuleDebug.TraceWithNL("%S: Nothing to upload for model '%S'", kRoutine, model.GetName());
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
    ModuleDebug.TraceWithNL("%S: Events have been uploaded with success for model '%S'", kRoutine,
                            model.GetName());
}

}  // namespace

std::optional<EventWindow> UploadWindow(Policy policy, int32_t start, int32_t end, bool scheduled,
                                        int32_t last) {
    const EventWindow window{std::max(start, last),
                             scheduled ? static_cast<int32_t>(PeriodStart(policy, end)) : end};
    return window.end > last ? std::optional(window) : std::nullopt;
}

LumString BuildUpload(const Model_t& model, EventWindow window) {
    LumString columns("E_Date, E_GMT_Offset, E_DeviceId, E_GroupId");
    ForEachParam(model, [&columns](const ModelParam_t& param, uint32_t) {
        columns += ", C_";
        columns += param.GetName();
        return true;
    });
    LumString when;
    when.Printf("E_Date >= %ld AND E_Date < %ld", int64_t{window.start}, int64_t{window.end});
    LumString statement;
    statement.Printf("SELECT %S FROM EVENT_%S WHERE %S;", columns, model.GetName(), when);
    return statement;
}

UploadFiles::UploadFiles(const Model_t& model) : description_(DescribeModel(model)) {
    ForEachParam(model, [this](const ModelParam_t& param, uint32_t position) {
        if (const ParamTypeTraits* const traits = FindParamType(param.GetType())) {
            params_.push_back({param.GetName(), traits, kFixedColumns + position});
        }
        return true;
    });
}

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
        for (const ParamColumn& param : params_) {
            param.traits->copyCell(rows, param.column, file, param.name, count);
        }
    }
    if (!hasDeviceId) {
        file.ClearName(keys::kEventDeviceId);
    }
    if (!hasGroupId) {
        file.ClearName(keys::kEventGroupId);
    }
    return count;
}

bool UploadEvents(const std::shared_ptr<Model_t>& model, uint32_t start, uint32_t end, bool scheduled) {
    ModuleDebug.TraceWithNL("%S: Entering", kRoutine);
    if (model == nullptr) {
        return false;
    }
    const std::optional<EventWindow> window =
        UploadWindow(model->GetUploadPolicy(), static_cast<int32_t>(start), static_cast<int32_t>(end),
                     scheduled, static_cast<int32_t>(model->GetLastUploadTime()));
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
        ModuleDebug.ErrorWithNL("%S: Failed to upload events for model '%S', SQL error", kRoutine, name);
        return false;
    }
    model->SetLastUploadTime(static_cast<uint32_t>(window->end));
    scope.Unlock();

    if (!uploadEnabled) {
        ModuleDebug.TraceWithNL("%S: Upload is disabled, ignoring events for model '%S'", kRoutine, name);
    } else if (!modelEnabled) {
        ModuleDebug.TraceWithNL("%S: Ignoring events for disabled model '%S'", kRoutine, name);
    } else {
        Send(*model, *rows);
    }
    return true;
}

uint32_t ActionHandler_EventLogManagerUploadEvents(LumContainer* container) {
    constexpr std::string_view kActionRoutine = "ActionHandler_EventLogManagerUploadEvents";
    return QueueTaskAction(
        container, kActionRoutine, [](const Model_t& model, const LumContainer& /*values*/) {
            return MakeTask(TaskType::TaskUpload, model.GetName(), model.GetLastUploadTime(),
                            static_cast<uint32_t>(std::time(nullptr)), false);
        });
}
