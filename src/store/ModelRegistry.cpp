#include "store/ModelRegistry.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/core/LumHealth.h"
#include "host/core/LumStartup.h"
#include "host/database/Transaction.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "host/xml/MarkupTree.h"
#include "model/ModelElement.h"
#include "model/ModelLoader.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/DirectoryListing.h"
#include "store/EventTable.h"
#include "store/ModelNames.h"
#include "store/Paths.h"

namespace {

/// True where the files of a filed definition can be read, whatever is in them.
bool CanBeRead(const LumString& directory) {
    std::vector<LumString> entries;
    return ListDirectory(directory, entries) &&
           std::all_of(entries.begin(), entries.end(), [&directory](const LumString& entry) {
               std::string content;
               LumString error;
               return !IsDefinitionName(entry) ||
                      FileRead(PathInDirectory(directory, entry), MarkupTree::kMaxFileBytes, content, error);
           });
}

/// Files a loaded model with what its row says of it.
void FileLoaded(const std::shared_ptr<Model_t>& model, const RegisteredRow& row) {
    model->SetLastAggregationTime(row.lastAggregation);
    model->SetLastUploadTime(row.lastUpload);
    model->SetEnabled(row.enabled);
    static_cast<void>(ModelCollection.Add(model));  // of two rows with one name the first stands
}

/// Loads the definition of a registered model and files the model; where that fails, `unloaded` says whether
/// another reading could change that.
bool LoadUnloaded(UnloadedModel& unloaded) {
    const RegisteredRow& row = unloaded.row;
    std::shared_ptr<Model_t> model;
    bool isPassing = false;
    if (LoadRegisteredModel(row.name, row.checksum, model, &isPassing)) {
        FileLoaded(model, row);
        return true;
    }
    unloaded.wasReadable = !isPassing && CanBeRead(FiledDirectory(row.name, row.checksum));
    return false;
}

/// For what another reading could do better.
bool FailForNow(bool* isPassing) {
    if (isPassing != nullptr) {
        *isPassing = true;
    }
    return false;
}

/// Loads the registered models that memory does not have although their definitions could be read: they were
/// dropped because a model that they refer to was missing.
void LoadWhatWasDropped() {
    DatabaseScope scope(LumRoutine(ModuleDebug, "LoadWhatCanBeReadAgain"));
    GenSqlResult* const rows = scope.IsLocked() ? scope.Query(kSelectRegisteredRows) : nullptr;
    scope.Unlock();
    for (uint32_t i = 0; rows != nullptr && rows->SelectRow(i); ++i) {
        const RegisteredRow row = ReadRegisteredRow(*rows);
        const bool isUnloaded =
            std::any_of(UnloadedModels.begin(), UnloadedModels.end(),
                        [&row](const UnloadedModel& unloaded) { return unloaded.row.name == row.name; });
        if (!isUnloaded && !ModelCollection.Contains(row.name)) {
            LoadRow(row);
        }
    }
}

}  // namespace

bool LoadRegisteredModels() {
    constexpr LumRoutine kRoutine(ModuleDebug, "LoadRegisteredModels");
    kRoutine.Trace("Entering");
    const LumMutexLock wholeStep(RegistryMutex);
    DatabaseScope scope(kRoutine);
    GenSqlResult* const rows = scope.IsLocked() ? scope.Query(kSelectRegisteredRows) : nullptr;
    LumHealthReport("registry",
                    rows != nullptr ? "" : "The registered models could not be read from the database.");
    if (!scope.IsLocked()) {
        return false;
    }
    scope.Unlock();
    if (rows == nullptr) {
        kRoutine.Error("Failed to load registered models");
        return false;
    }
    UnloadedModels.clear();
    IncompleteModels.Clear();
    for (uint32_t i = 0; rows->SelectRow(i) && !LumStopRequested(); ++i) {
        LoadRow(ReadRegisteredRow(*rows));
    }
    return true;
}

void LoadRow(const RegisteredRow& row) {
    UnloadedModel unloaded{row};
    if (!LoadUnloaded(unloaded)) {
        UnloadedModels.push_back(std::move(unloaded));
    }
}

bool LoadWhatCanBeReadAgain() {
    const LumMutexLock wholeStep(RegistryMutex);
    bool loaded = false;
    for (std::size_t i = 0; i < UnloadedModels.size();) {
        UnloadedModel& unloaded = UnloadedModels[i];
        const RegisteredRow& row = unloaded.row;
        const bool mayLoad = !LumStopRequested() && !unloaded.wasReadable && IsPathComponent(row.name) &&
                             IsPathComponent(row.checksum) &&
                             CanBeRead(FiledDirectory(row.name, row.checksum));
        if (mayLoad && LoadUnloaded(unloaded)) {
            UnloadedModels.erase(UnloadedModels.begin() + static_cast<std::ptrdiff_t>(i));
            loaded = true;
        } else {
            ++i;
        }
    }
    if (loaded) {
        LoadWhatWasDropped();
    }
    return loaded;
}

bool LoadRegisteredModel(const LumString& name, const LumString& checksum, std::shared_ptr<Model_t>& model,
                         bool* isPassing) {
    constexpr LumRoutine kRoutine(ModuleDebug, "LoadRegisteredModel");
    kRoutine.Trace("Entering");
    const LumString directory = FiledDirectory(name, checksum);
    if (!IsPathComponent(name) || !IsPathComponent(checksum)) {
        kRoutine.Error("Failed to load model '%S' ('%S' leads out of the models directory)", name, directory);
        return false;
    }
    if (!DirExists(directory)) {
        kRoutine.Error("Failed to load model '%S' (missing directory '%S')", name, directory);
        return FailForNow(isPassing);
    }
    std::vector<LumString> entries;
    if (!ListDirectory(directory, entries)) {
        kRoutine.Error("Failed to load model '%S' (failed to open directory '%S')", name, directory);
        return FailForNow(isPassing);
    }
    for (const LumString& entry : entries) {
        if (IsDefinitionName(entry) && LoadModel(PathInDirectory(directory, entry), model, isPassing)) {
            return true;
        }
        kRoutine.Warning("While trying to load model '%S', unexpected file '%S'", name, entry);
    }
    return false;
}

bool RegisterModel(const std::shared_ptr<Model_t>& model) {
    constexpr LumRoutine kRoutine(ModuleDebug, "RegisterModel");
    kRoutine.Trace("Entering");
    if (model == nullptr) {
        return false;
    }
    DatabaseScope scope(kRoutine);
    if (!scope.IsLocked()) {
        return false;
    }
    const bool registered = NamesAreUsable(*model, scope.Connection(), kRoutine) &&
                            RunInTransaction(scope.Connection(), RegistrationStatements(*model));
    scope.Unlock();
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
    const LumString filed = FiledDirectory(name, model->GetChecksum());
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
    // From here on nothing ends the routine for want of memory: what the database has given up goes as a
    // whole.
    DirDelete(filed, true, true);
    kRoutine.Print("Model '%S' has been unregistered with success", name);
    return true;
}

bool RemoveRegisteredModel(const LumString& name) {
    constexpr LumRoutine kRoutine(ModuleDebug, "RemoveRegisteredModel");
    kRoutine.Trace("Entering");
    const LumMutexLock wholeStep(RegistryMutex);
    std::shared_ptr<Model_t> model;
    if (!ModelCollection.Get(name, model)) {
        kRoutine.Error("Failed to get model '%S'", name);
        return false;
    }
    const LumString directory = ModelDirectory(name);
    if (!UnregisterModel(model)) {
        return false;
    }
    DirDelete(directory, true, true);
    ModelCollection.Remove(model);
    kRoutine.Print("Model '%S' has been removed with success", name);
    return true;
}
