#include "store/ModelRegistry.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "host/database/Database.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "host/text/LumPattern.h"
#include "host/thread/LumMutex.h"
#include "model/ModelElement.h"
#include "model/ModelLoader.h"
#include "model/ModuleLog.h"
#include "model/ParamTypes.h"
#include "store/DatabaseScope.h"
#include "store/DirectoryListing.h"
#include "store/Paths.h"

namespace {

constexpr const char* kDefinitionPattern = "*.xml";

/// One row of RegisteredModel.
struct RegisteredRow {
    LumString name;
    LumString checksum;
    int64_t enabled = 0;
    int64_t lastAggregation = 0;
    int64_t lastUpload = 0;
};

bool IsDefinitionName(const LumString& fileName) {
    return MatchPattern(fileName, kDefinitionPattern, false);
}

/// True where "Event_" or "C_" followed by `name` is one SQL name as it stands.
bool IsNamePart(const LumString& name) {
    const std::string_view text = name.View();
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
               byte == '_' || byte == '$' || byte >= 0x80;
    });
}

/// True where a directory can be called `name`.
bool FitsFileSystem(const LumString& name) {
    return name.GetLength() <= NAME_MAX;
}

/// Refuses a model whose names would say something else in an SQL text or a path than a name.
bool NamesAreUsable(const Model_t& model, std::string_view routine) {
    if (!IsNamePart(model.GetName()) || !FitsFileSystem(model.GetName())) {
        ModuleDebug.ErrorWithNL("%S: Model name '%S' is no table name", routine, model.GetName());
        return false;
    }
    return ForEachParam(model, [&](const ModelParam_t& param, uint32_t) {
        const bool usable = IsNamePart(param.GetName());
        if (!usable) {
            ModuleDebug.ErrorWithNL("%S: Parameter name '%S' of model '%S' is no column name", routine,
                                    param.GetName(), model.GetName());
        }
        return usable;
    });
}

std::vector<LumString> RegistrationStatements(const Model_t& model) {
    const LumString& name = model.GetName();
    LumString table;
    table.Printf(
        "CREATE TABLE Event_%S (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_GMT_Offset INTEGER, "
        "E_DeviceId INTEGER NOT NULL, E_GroupId INTEGER NOT NULL",
        name);
    ForEachParam(model, [&table](const ModelParam_t& param, uint32_t) {
        const ParamTypeTraits* const traits = FindParamType(param.GetType());
        table += ", C_";
        table += param.GetName();
        table += " ";
        // A column of a type that nobody knows is declared without one.
        table.Append(traits != nullptr ? traits->columnType : std::string_view());
        return true;
    });
    table += ");";

    std::vector<LumString> statements(5);
    statements[0] = std::move(table);
    statements[1].Printf(
        "INSERT INTO RegisteredModel (RM_ModelName, RM_Checksum, RM_Enabled, RM_LastAggregationTimestamp, "
        "RM_LastUploadTimestamp) VALUES ('%S', '%S', 1, 0, 0);",
        name, model.GetChecksum());
    statements[2].Printf("CREATE INDEX Ix_Event_%S_Date ON Event_%S (E_Date)", name, name);
    statements[3].Printf("CREATE INDEX Ix_Event_%S_DeviceID ON Event_%S (E_DeviceID)", name, name);
    statements[4].Printf("CREATE INDEX Ix_Event_%S_GroupID ON Event_%S (E_GroupID)", name, name);
    return statements;
}

RegisteredRow ReadRow(const GenSqlResult& rows) {
    RegisteredRow row;
    static_cast<void>(rows.GetColumn(0, row.name));  // the statement names all five columns
    static_cast<void>(rows.GetColumn(1, row.checksum));
    static_cast<void>(rows.GetColumn(2, row.enabled));
    static_cast<void>(rows.GetColumn(3, row.lastAggregation));
    static_cast<void>(rows.GetColumn(4, row.lastUpload));
    return row;
}

/// Takes in one dropped file.
class DroppedDefinition {
public:
    explicit DroppedDefinition(const LumString& fileName)
        : fileName_(fileName), path_(DroppedFile(fileName)) {}

    void TakeIn() {
        if (!IsRegularFile(path_)) {
            ModuleDebug.WarningWithNL("%S: '%S' is no regular file", kRoutine, path_);
            return;
        }
        std::shared_ptr<Model_t> model;
        if (!LoadModel(path_, model)) {
            return;
        }
        // A model that is removed meanwhile would come back without its table.
        const LumMutexLock wholeStep(DatabaseMutex);
        std::shared_ptr<Model_t> existing;
        if (ModelCollection.Get(model->GetName(), existing)) {
            if (existing->GetChecksum().View() != model->GetChecksum().View()) {
                ModuleDebug.ErrorWithNL("%S: Model '%S' already exist with different checksum", kRoutine,
                                        model->GetName());
                return;
            }
        } else if (!RegisterModel(model)) {
            return;
        }
        if (!File(*model)) {
            return;
        }
        if (existing != nullptr) {
            ModelCollection.Remove(existing);
            ModuleDebug.PrintWithNL("%S: Model '%S' has been updated", kRoutine, model->GetName());
        }
        static_cast<void>(ModelCollection.Add(model));
    }

    static constexpr std::string_view kRoutine = "LoadUnregisteredModels";

private:
    /// Moves the file to where the registry keeps definitions: copied first, so that it is never lost.
    bool File(const Model_t& model) const {
        const LumString target = FiledDirectory(model.GetName(), model.GetChecksum());
        PathCreate(target);
        if (!FileCopy(path_, PathInDirectory(target, fileName_), false)) {
            ModuleDebug.ErrorWithNL("%S: Failed to copy new definition for model '%S'", kRoutine,
                                    model.GetName());
            return false;
        }
        if (!FileDelete(path_, false)) {
            ModuleDebug.WarningWithNL("%S: Failed to delete file '%S'", kRoutine, path_);
        }
        return true;
    }

    const LumString& fileName_;
    const LumString path_;
};

}  // namespace

bool LoadRegisteredModels() {
    constexpr std::string_view kRoutine = "LoadRegisteredModels";
    ModuleDebug.TraceWithNL("%S: Entering", kRoutine);
    DatabaseScope scope(kRoutine);
    if (!scope.IsLocked()) {
        return false;
    }
    GenSqlResult* const rows = scope.Query(
        "SELECT RM_ModelName, RM_Checksum, RM_Enabled, RM_LastAggregationTimestamp, RM_LastUploadTimestamp "
        "FROM "
        "RegisteredModel;");
    scope.Unlock();
    if (rows == nullptr) {
        ModuleDebug.ErrorWithNL("%S: Failed to load registered models", kRoutine);
        return false;
    }
    for (uint32_t i = 0; rows->SelectRow(i); ++i) {
        const RegisteredRow row = ReadRow(*rows);
        std::shared_ptr<Model_t> model;
        if (!LoadRegisteredModel(row.name, row.checksum, model)) {
            continue;
        }
        model->SetLastAggregationTime(static_cast<uint32_t>(row.lastAggregation));
        model->SetLastUploadTime(static_cast<uint32_t>(row.lastUpload));
        model->SetEnabled(row.enabled == 1);
        static_cast<void>(ModelCollection.Add(model));  // of two rows with one name the first stands
    }
    return true;
}

bool LoadRegisteredModel(const LumString& name, const LumString& checksum, std::shared_ptr<Model_t>& model) {
    constexpr std::string_view kRoutine = "LoadRegisteredModel";
    ModuleDebug.TraceWithNL("%S: Entering", kRoutine);
    const LumString directory = FiledDirectory(name, checksum);
    if (!IsPathComponent(name) || !IsPathComponent(checksum)) {
        ModuleDebug.ErrorWithNL("%S: Failed to load model '%S' ('%S' leads out of the models directory)",
                                kRoutine, name, directory);
        return false;
    }
    if (!DirExists(directory)) {
        ModuleDebug.ErrorWithNL("%S: Failed to load model '%S' (missing directory '%S')", kRoutine, name,
                                directory);
        return false;
    }
    std::vector<LumString> entries;
    if (!ListDirectory(directory, entries)) {
        ModuleDebug.ErrorWithNL("%S: Failed to load model '%S' (failed to open directory '%S')", kRoutine,
                                name, directory);
        return false;
    }
    for (const LumString& entry : entries) {
        if (IsDefinitionName(entry) && LoadModel(PathInDirectory(directory, entry), model)) {
            return true;
        }
        ModuleDebug.WarningWithNL("%S: While trying to load model '%S', unexpected file '%S'", kRoutine, name,
                                  entry);
    }
    return false;
}

bool LoadUnregisteredModels() {
    ModuleDebug.TraceWithNL("%S: Entering", DroppedDefinition::kRoutine);
    // Two passes at once would take each other's files for vanished ones.
    static std::mutex onePassAtATime;
    const std::lock_guard<std::mutex> pass(onePassAtATime);
    std::vector<LumString> entries;
    if (!ListDirectory(ModelsDirectory, entries)) {
        ModuleDebug.ErrorWithNL("%S: Failed to load models, (failed to open directory '%S')",
                                DroppedDefinition::kRoutine, ModelsDirectory);
        return false;
    }
    for (const LumString& entry : entries) {
        if (IsDefinitionName(entry)) {
            DroppedDefinition(entry).TakeIn();
        }
    }
    return true;
}

bool RegisterModel(const std::shared_ptr<Model_t>& model) {
    constexpr std::string_view kRoutine = "RegisterModel";
    ModuleDebug.TraceWithNL("%S: Entering", kRoutine);
    if (model == nullptr) {
        return false;
    }
    bool registered = false;
    if (NamesAreUsable(*model, kRoutine)) {
        const std::vector<LumString> statements = RegistrationStatements(*model);
        DatabaseScope scope(kRoutine);
        if (!scope.IsLocked()) {
            return false;
        }
        registered = RunInTransaction(scope.Connection(), statements);
    }
    if (!registered) {
        ModuleDebug.ErrorWithNL("%S: Failed to register model '%S'", kRoutine, model->GetName());
        return false;
    }
    ModuleDebug.PrintWithNL("%S: Model '%S' has been registered with success", kRoutine, model->GetName());
    return true;
}

bool UnregisterModel(const std::shared_ptr<Model_t>& model) {
    constexpr std::string_view kRoutine = "UnregisterModel";
    ModuleDebug.TraceWithNL("%S: Entering", kRoutine);
    if (model == nullptr) {
        return false;
    }
    const LumString& name = model->GetName();
    std::vector<LumString> statements(2);
    statements[0].Printf("DROP TABLE Event_%S;", name);
    statements[1].Printf("DELETE FROM RegisteredModel WHERE RM_ModelName = '%S';", name);
    {
        DatabaseScope scope(kRoutine);
        if (!scope.IsLocked()) {
            return false;
        }
        if (!RunInTransaction(scope.Connection(), statements)) {
            scope.Unlock();
            ModuleDebug.ErrorWithNL("%S: Failed to unregister model '%S'", kRoutine, name);
            return false;
        }
    }
    DirDelete(FiledDirectory(name, model->GetChecksum()), true, true);
    ModuleDebug.PrintWithNL("%S: Model '%S' has been unregistered with success", kRoutine, name);
    return true;
}

bool RemoveRegisteredModel(const LumString& name) {
    constexpr std::string_view kRoutine = "RemoveRegisteredModel";
    ModuleDebug.TraceWithNL("%S: Entering", kRoutine);
    const LumMutexLock wholeStep(DatabaseMutex);  // for the same reason as when a dropped file is taken in
    std::shared_ptr<Model_t> model;
    if (!ModelCollection.Get(name, model)) {
        ModuleDebug.ErrorWithNL("%S: Failed to get model '%S'", kRoutine, name);
        return false;
    }
    if (!UnregisterModel(model)) {
        return false;
    }
    DirDelete(ModelDirectory(name), true, true);
    ModelCollection.Remove(model);
    ModuleDebug.PrintWithNL("%S: Model '%S' has been removed with success", kRoutine, name);
    return true;
}
