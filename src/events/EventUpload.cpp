#include "events/EventUpload.h"

#include <algorithm>
#include <ctime>
#include <string_view>

#include "events/Period.h"
#include "events/TaskAction.h"
#include "host/core/FileStoreAction.h"
#include "host/lum/LumDebug.h"
#include "model/ContainerKeys.h"
#include "model/ModelArguments.h"
#include "model/ParamTypes.h"
#include "module/ModuleObjects.h"
#include "store/DatabaseScope.h"

namespace {

constexpr std::string_view kRoutine = "UploadEvents";
constexpr const char* kFileKind = "EventLogManagerEvents";
constexpr int32_t kFilePriority = 100;

/// The columns before the parameters: date, offset, device id, group id.
constexpr uint32_t kFixedColumns = 4;

LumString SelectStatement(const Model_t& model, int32_t start, int32_t end) {
    LumString columns("E_Date, E_GMT_Offset, E_DeviceId, E_GroupId");
    ForEachParam(model, [&columns](const ModelParam_t& param, uint32_t) {
        columns += ", C_";
        columns += param.GetName();
        return true;
    });
    LumString window;
    window.Printf("E_Date >= %ld AND E_Date < %ld", int64_t{start}, int64_t{end});
    LumString statement;
    statement.Printf("SELECT %S FROM EVENT_%S WHERE %S;", columns, model.GetName(), window);
    return statement;
}

/// Copies an integer column of the selected row to `key`; true where it is not 0.
bool CopyInteger(const GenSqlResult& rows, uint32_t column, LumContainer& file, const char* key,
                 uint32_t index) {
    int64_t value = 0;
    static_cast<void>(rows.GetColumn(column, value));  // the statement names the column
    file.SetInt32(key, static_cast<int32_t>(value), index);
    return static_cast<int32_t>(value) != 0;
}

void SendInFiles(const Model_t& model, const LumContainer& description, GenSqlResult& rows) {
    LumContainer file;
    for (uint32_t first = 0; first < rows.GetRowCount();) {
        first += FillUploadFile(model, description, rows, first, file);
        FileStoreHandOver(file, kFileKind, kFilePriority);
    }
}

}  // namespace

LumContainer DescribeModel(const Model_t& model) {
    LumContainer description;
    description.SetString(keys::kModelName, model.GetName());
    description.SetString(keys::kModelChecksum, model.GetChecksum());
    description.SetContainer(keys::kModelVars, DescribeParams(model));
    return description;
}

uint32_t FillUploadFile(const Model_t& model, const LumContainer& description, GenSqlResult& rows,
                        uint32_t first, LumContainer& file) {
    file.Clear();
    file.SetContainer(keys::kModelDef, description);
    bool hasDeviceId = false;
    bool hasGroupId = false;
    uint32_t count = 0;
    for (; count < kUploadFileEvents && rows.SelectRow(first + count); ++count) {
        CopyInteger(rows, 0, file, keys::kEventDate, count);
        CopyInteger(rows, 1, file, keys::kEventGmtOffset, count);
        hasDeviceId |= CopyInteger(rows, 2, file, keys::kEventDeviceId, count);
        hasGroupId |= CopyInteger(rows, 3, file, keys::kEventGroupId, count);
        ForEachParam(model, [&](const ModelParam_t& param, uint32_t position) {
            if (const ParamTypeTraits* const traits = FindParamType(param.GetType())) {
                traits->copyCell(rows, kFixedColumns + position, file, param.GetName(), count);
            }
            return true;
        });
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
    const LumString& name = model->GetName();
    const auto last = static_cast<int32_t>(model->GetLastUploadTime());
    const int32_t from = std::max(static_cast<int32_t>(start), last);
    const auto asked = static_cast<int32_t>(end);
    const int32_t to = scheduled ? static_cast<int32_t>(PeriodStart(model->GetUploadPolicy(), asked)) : asked;
    if (to <= last) {
        ModuleDebug.TraceWithNL("%S: Nothing to upload for model '%S'", kRoutine, name);
        return true;
    }
    const bool uploadEnabled = UploadEnabled.load(std::memory_order_relaxed);
    const bool modelEnabled = model->IsEnabled();
    const bool sends = uploadEnabled && modelEnabled;
    LumString update;
    update.Printf("UPDATE RegisteredModel SET RM_LastUploadTimestamp = %ld WHERE RM_ModelName = '%S';",
                  int64_t{to}, name);

    DatabaseScope scope(kRoutine);
    if (!scope.IsLocked()) {
        return false;
    }
    const bool updated = scope.Query(update) != nullptr;
    GenSqlResult* const rows = updated && sends ? scope.Query(SelectStatement(*model, from, to)) : nullptr;
    if (!updated || (sends && rows == nullptr)) {
        scope.Unlock();
        ModuleDebug.ErrorWithNL("%S: Failed to upload events for model '%S', SQL error", kRoutine, name);
        return false;
    }
    model->SetLastUploadTime(static_cast<uint32_t>(to));
    scope.Unlock();

    if (!uploadEnabled) {
        ModuleDebug.TraceWithNL("%S: Upload is disabled, ignoring events for model '%S'", kRoutine, name);
    } else if (!modelEnabled) {
        ModuleDebug.TraceWithNL("%S: Ignoring events for disabled model '%S'", kRoutine, name);
    } else if (rows->GetRowCount() == 0) {
        ModuleDebug.TraceWithNL("%S: Nothing to upload for model '%S'", kRoutine, name);
    } else {
        SendInFiles(*model, DescribeModel(*model), *rows);
        ModuleDebug.TraceWithNL("%S: Events have been uploaded with success for model '%S'", kRoutine, name);
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
