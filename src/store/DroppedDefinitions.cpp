#include <algorithm>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "host/core/LumStartup.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "model/ModelElement.h"
#include "model/ModelLoader.h"
#include "model/ModuleLog.h"
#include "store/DirectoryListing.h"
#include "store/ModelRegistry.h"
#include "store/Paths.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "LoadUnregisteredModels");

/// The models of that name and checksum which are registered without a definition in memory.
std::vector<UnloadedModel>::iterator FindUnloaded(const Model_t& model) {
    return std::find_if(
        UnloadedModels.begin(), UnloadedModels.end(), [&model](const UnloadedModel& unloaded) {
            return unloaded.row.name == model.GetName() && unloaded.row.checksum == model.GetChecksum();
        });
}

/// Takes in one dropped file.
class DroppedDefinition {
public:
    explicit DroppedDefinition(const LumString& fileName)
        : fileName_(fileName), path_(DroppedFile(fileName)) {}

    void TakeIn() const {
        std::shared_ptr<Model_t> model;
        if (!LoadModel(path_, model)) {
            return;
        }
        std::shared_ptr<Model_t> existing;
        if (ModelCollection.Get(model->GetName(), existing)) {
            Update(*existing, model);
        } else if (FindUnloaded(*model) != UnloadedModels.end()) {
            Restore(model);
        } else {
            Register(model);
        }
    }

    [[nodiscard]] const LumString& Path() const { return path_; }

private:
    void Update(const Model_t& existing, const std::shared_ptr<Model_t>& model) const {
        const LumString& name = model->GetName();
        if (!(existing.GetChecksum() == model->GetChecksum())) {
            kRoutine.Error("Model '%S' already exist with different checksum", name);
            return;
        }
        if (!existing.IsEnabled() || existing.GetLastUploadTime() != 0) {
            kRoutine.Warning(
                "Model '%S' is known and replaced by its dropped definition: it becomes enabled, and all of "
                "its "
                "events are uploaded again",
                name);
        }
        if (File(*model)) {
            ModelCollection.Replace(model);
            kRoutine.Print("Model '%S' has been updated", name);
        }
    }

    /// A start or a reload was cut off after the model was registered and before its definition was filed, or
    /// the filed one was lost.
    void Restore(const std::shared_ptr<Model_t>& model) const {
        if (TakeFromUnloaded(model)) {
            kRoutine.Print("Model '%S' was registered without a definition and has it again",
                           model->GetName());
        }
    }

    /// Files the definition of one of UnloadedModels, and the model in the collection.
    [[nodiscard]] bool TakeFromUnloaded(const std::shared_ptr<Model_t>& model) const {
        const auto unloaded = FindUnloaded(*model);
        // Should memory run out on the way, it is loaded from where it is filed then.
        unloaded->wasReadable = false;
        if (!File(*model)) {
            return false;
        }
        model->SetLastAggregationTime(unloaded->row.lastAggregation);
        model->SetLastUploadTime(unloaded->row.lastUpload);
        model->SetEnabled(unloaded->row.enabled);
        static_cast<void>(ModelCollection.Add(model));
        UnloadedModels.erase(unloaded);
        return true;
    }

    void Register(const std::shared_ptr<Model_t>& model) const {
        UnloadedModel registered;
        registered.row.name = model->GetName();
        registered.row.checksum = model->GetChecksum();
        registered.row.enabled = true;
        UnloadedModels.reserve(UnloadedModels.size() + 1);
        if (RegisterModel(model)) {
            // Whatever fails from here on, it is known as registered, and the file that stays is its
            // definition.
            UnloadedModels.push_back(std::move(registered));
            static_cast<void>(TakeFromUnloaded(model));
        }
    }

    /// Moves the file to where the registry keeps definitions: copied first, down to the disk with the
    /// directories that it takes, so that it is never lost.
    [[nodiscard]] bool File(const Model_t& model) const {
        const LumString target = FiledDirectory(model.GetName(), model.GetChecksum());
        PathCreate(target);
        if (!FileCopy(path_, PathInDirectory(target, fileName_), false)) {
            kRoutine.Error("Failed to copy new definition for model '%S'", model.GetName());
            return false;
        }
        // One that came back would be dropped anew: a deleted model would be there again.
        if (!FileDeleteForGood(path_)) {
            kRoutine.Warning("Failed to delete file '%S'", path_);
        }
        return true;
    }

    const LumString& fileName_;
    const LumString path_;
};

/// Says of each entry once that it is not a file.
void RefuseEntry(const LumString& path) {
    static std::set<LumString> said;  // guarded by RegistryMutex
    if (said.insert(path).second) {
        kRoutine.Warning("'%S' is not a regular file", path);
    }
}

}  // namespace

bool LoadUnregisteredModels(bool mayStop) {
    kRoutine.Trace("Entering");
    const LumMutexLock wholeStep(RegistryMutex);
    std::vector<LumString> entries;
    if (!ListDirectory(ModelsDirectory, entries)) {
        kRoutine.Error("Failed to load models, (failed to open directory '%S')", ModelsDirectory);
        return false;
    }
    for (const LumString& entry : entries) {
        if (mayStop && LumStopRequested()) {
            break;  // the next start takes in the rest
        }
        if (!IsDefinitionName(entry)) {
            continue;
        }
        const DroppedDefinition dropped(entry);
        if (IsRegularFile(dropped.Path())) {
            dropped.TakeIn();
        } else {
            RefuseEntry(dropped.Path());
        }
    }
    return true;
}
