#include "store/ModelRegistry.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "host/database/Transaction.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "host/text/LumPattern.h"
#include "host/thread/LumMutex.h"
#include "model/ModelElement.h"
#include "model/ModelLoader.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/DirectoryListing.h"
#include "store/EventTable.h"
#include "store/Paths.h"

namespace {

constexpr const char* kDefinitionPattern = "*.xml";

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
bool NamesAreUsable(const Model_t& model, const LumRoutine& routine) {
    if (!IsNamePart(model.GetName()) || !FitsFileSystem(model.GetName())) {
        routine.Error("Model name '%S' is no table name", model.GetName());
        return false;
    }
    return ForEachParam(model, [&](const ModelParam_t& param, uint32_t) {
        const bool usable = IsNamePart(param.GetName());
        if (!usable) {
            routine.Error("Parameter name '%S' of model '%S' is no column name", param.GetName(),
                          model.GetName());
        }
        return usable;
    });
}

/// Takes in one dropped file.
class DroppedDefinition {
public:
    explicit DroppedDefinition(const LumString& fileName)
        : fileName_(fileName), path_(DroppedFile(fileName)) {}

    void TakeIn() {
        if (!IsRegularFile(path_)) {
            kRoutine.Warning("'%S' is no regular file", path_);
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
                kRoutine.Error("Model '%S' already exist with different checksum", model->GetName());
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
            kRoutine.Print("Model '%S' has been updated", model->GetName());
        }
        static_cast<void>(ModelCollection.Add(model));
    }

    static constexpr LumRoutine kRoutine{ModuleDebug, "LoadUnregisteredModels"};

private:
    /// Moves the file to where the registry keeps definitions: copied first, so that it is never lost.
    bool File(const Model_t& model) const {
        const LumString target = FiledDirectory(model.GetName(), model.GetChecksum());
        PathCreate(target);
        if (!FileCopy(path_, PathInDirectory(target, fileName_), false)) {
            kRoutine.Error("Failed to copy new definition for model '%S'", model.GetName());
            return false;
        }
        if (!FileDelete(path_, false)) {
            kRoutine.Warning("Failed to delete file '%S'", path_);
        }
        return true;
    }

    const LumString& fileName_;
    const LumString path_;
};

}  // namespace

bool LoadRegisteredModels() {
    constexpr LumRoutine kRoutine(ModuleDebug, "LoadRegisteredModels");
    kRoutine.Trace("Entering");
    DatabaseScope scope(kRoutine);
    if (!scope.IsLocked()) {
        return false;
    }
    GenSqlResult* const rows = scope.Query(kSelectRegisteredRows);
    scope.Unlock();
    if (rows == nullptr) {
        kRoutine.Error("Failed to load registered models");
        return false;
    }
    for (uint32_t i = 0; rows->SelectRow(i); ++i) {
        const RegisteredRow row = ReadRegisteredRow(*rows);
        std::shared_ptr<Model_t> model;
        if (!LoadRegisteredModel(row.name, row.checksum, model)) {
            continue;
        }
        model->SetLastAggregationTime(row.lastAggregation);
        model->SetLastUploadTime(row.lastUpload);
        model->SetEnabled(row.enabled);
        static_cast<void>(ModelCollection.Add(model));  // of two rows with one name the first stands
    }
    return true;
}

bool LoadRegisteredModel(const LumString& name, const LumString& checksum, std::shared_ptr<Model_t>& model) {
    constexpr LumRoutine kRoutine(ModuleDebug, "LoadRegisteredModel");
    kRoutine.Trace("Entering");
    const LumString directory = FiledDirectory(name, checksum);
    if (!IsPathComponent(name) || !IsPathComponent(checksum)) {
        kRoutine.Error("Failed to load model '%S' ('%S' leads out of the models directory)", name, directory);
        return false;
    }
    if (!DirExists(directory)) {
        kRoutine.Error("Failed to load model '%S' (missing directory '%S')", name, directory);
        return false;
    }
    std::vector<LumString> entries;
    if (!ListDirectory(directory, entries)) {
        kRoutine.Error("Failed to load model '%S' (failed to open directory '%S')", name, directory);
        return false;
    }
    for (const LumString& entry : entries) {
        if (IsDefinitionName(entry) && LoadModel(PathInDirectory(directory, entry), model)) {
            return true;
        }
        kRoutine.Warning("While trying to load model '%S', unexpected file '%S'", name, entry);
    }
    return false;
}

bool LoadUnregisteredModels() {
    DroppedDefinition::kRoutine.Trace("Entering");
    // Two passes at once would take each other's files for vanished ones.
    static std::mutex onePassAtATime;
    const std::lock_guard<std::mutex> pass(onePassAtATime);
    std::vector<LumString> entries;
    if (!ListDirectory(ModelsDirectory, entries)) {
        DroppedDefinition::kRoutine.Error("Failed to load models, (failed to open directory '%S')",
                                          ModelsDirectory);
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
    constexpr LumRoutine kRoutine(ModuleDebug, "RegisterModel");
    kRoutine.Trace("Entering");
    if (model == nullptr) {
        return false;
    }
    bool registered = false;
    if (NamesAreUsable(*model, kRoutine)) {
        DatabaseScope scope(kRoutine);
        if (!scope.IsLocked()) {
            return false;
        }
        registered = RunInTransaction(scope.Connection(), RegistrationStatements(*model));
    }
    if (!registered) {
        kRoutine.Error("Failed to register model '%S'", model->GetName());
        return false;
    }
    kRoutine.Print("Model '%S' has been registered with success", model->GetName());
    return true;
}

bool UnregisterModel(const std::shared_ptr<Model_t>& model) {
    constexpr LumRoutine kRoutine(ModuleDebug, "UnregisterModel");
    kRoutine.Trace("Entering");
    if (model == nullptr) {
        return false;
    }
    const LumString& name = model->GetName();
    {
        DatabaseScope scope(kRoutine);
        if (!scope.IsLocked()) {
            return false;
        }
        if (!RunInTransaction(scope.Connection(), RemovalStatements(name))) {
            scope.Unlock();
            kRoutine.Error("Failed to unregister model '%S'", name);
            return false;
        }
    }
    DirDelete(FiledDirectory(name, model->GetChecksum()), true, true);
    kRoutine.Print("Model '%S' has been unregistered with success", name);
    return true;
}

bool RemoveRegisteredModel(const LumString& name) {
    constexpr LumRoutine kRoutine(ModuleDebug, "RemoveRegisteredModel");
    kRoutine.Trace("Entering");
    const LumMutexLock wholeStep(DatabaseMutex);  // for the same reason as when a dropped file is taken in
    std::shared_ptr<Model_t> model;
    if (!ModelCollection.Get(name, model)) {
        kRoutine.Error("Failed to get model '%S'", name);
        return false;
    }
    if (!UnregisterModel(model)) {
        return false;
    }
    DirDelete(ModelDirectory(name), true, true);
    ModelCollection.Remove(model);
    kRoutine.Print("Model '%S' has been removed with success", name);
    return true;
}
