#include "store/startup/StoreStartup.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "host/core/LumStartup.h"
#include "host/database/Database.h"
#include "host/log/LumDebug.h"
#include "host/thread/LumMutex.h"
#include "model/CheckModels.h"
#include "model/ModelElement.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/DatabaseSetup.h"
#include "store/ModelRegistry.h"
#include "store/startup/EventManagerMerge.h"
#include "store/startup/SchemaUpgrades.h"
#include "store/startup/UpgradeRecord.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "KeepStoreUp");

/// What the last start of the store came to. Guarded by RegistryMutex.
struct StoreState {
    bool isRead = false;     ///< the registered models were loaded
    bool mayTakeIn = false;  ///< no upgrade is outstanding that dropped definitions have to wait for
    uint32_t openCount = 0;  ///< of the database that the models were loaded from
};
StoreState state;

bool DatabaseAnswers() {
    DatabaseScope scope(kRoutine);
    return scope.IsLocked() &&
           scope.Connection().Query("SELECT count(*) FROM sqlite_master", true) != nullptr;
}

/// The first steps of an upgrade must see the models as they were registered, the second ones as they are
/// loaded anew from their files. An upgrade does not begin without the registered models; once it has begun
/// it is not cut off. The dropped definitions wait with it: the first step would remove what was taken in
/// before it.
void LoadAndUpgrade() {
    UpgradeRecord upgrade;
    bool mayUpgrade = upgrade.Begin();
    state.isRead = LoadRegisteredModels();
    mayUpgrade = mayUpgrade && (state.isRead || !DatabaseAnswers()) && !LumStopRequested();
    state.mayTakeIn = mayUpgrade;
    if (mayUpgrade) {
        UpgradeSoftwareDistributionModelStep1();
        Upgrade620_Step1();
        LoadUnregisteredModels(!upgrade.IsUnderWay());
        UpgradeSoftwareDistributionModelStep2();
        Upgrade620_Step2();
    }
    CheckModels();
    if (mayUpgrade) {
        Upgrade1000();
    }
    upgrade.End();
}

std::vector<std::shared_ptr<Model_t>> LoadedModels() {
    std::vector<std::shared_ptr<Model_t>> models;
    std::shared_ptr<Model_t> model;
    for (uint32_t i = 0; ModelCollection.GetAt(i, model); ++i) {
        models.push_back(model);
    }
    return models;
}

/// Brings a model of the collection in step with its row in the database that was opened; without one it is
/// registered there as a new one.
void Reconcile(std::shared_ptr<Model_t> model, std::vector<RegisteredRow>& rows) {
    const auto row = std::find_if(rows.begin(), rows.end(), [&model](const RegisteredRow& one) {
        return one.name == model->GetName();
    });
    if (row == rows.end()) {
        kRoutine.Warning("Model '%S' is not in the database that was opened and is registered there",
                         model->GetName());
        if (!RegisterModel(model)) {
            ModelCollection.Remove(model);
        }
        return;
    }
    if (!(row->checksum == model->GetChecksum())) {
        ModelCollection.Remove(model);
        return;
    }
    model->SetEnabled(row->enabled);
    model->SetLastAggregationTime(row->lastAggregation);
    model->SetLastUploadTime(row->lastUpload);
    rows.erase(row);
}

/// Brings the collection in step with a database that has taken the place of the one before.
bool TakeOverDatabase() {
    RunDatabaseScripts();
    std::vector<RegisteredRow> rows;
    {
        DatabaseScope scope(kRoutine);
        GenSqlResult* const found = scope.IsLocked() ? scope.Query(kSelectRegisteredRows) : nullptr;
        if (found == nullptr) {
            return false;
        }
        for (uint32_t i = 0; found->SelectRow(i); ++i) {
            rows.push_back(ReadRegisteredRow(*found));
        }
    }
    kRoutine.Warning("The database was opened anew; it holds %u registered models",
                     static_cast<uint32_t>(rows.size()));
    for (const std::shared_ptr<Model_t>& model : LoadedModels()) {
        Reconcile(model, rows);
    }
    UnloadedModels.clear();
    IncompleteModels.Clear();
    for (const RegisteredRow& row : rows) {
        if (LumStopRequested()) {
            return false;
        }
        LoadRow(row);
    }
    CheckModels();
    return true;
}

}  // namespace

void BringStoreUp() {
    const LumMutexLock wholeStep(RegistryMutex);
    InitializeDatabase();
    LoadAndUpgrade();
    state.openCount = DatabasePool.GetOpenCount();
}

bool KeepStoreUp() {
    const LumMutexLock wholeStep(RegistryMutex);
    if (!state.isRead) {
        if (DatabaseAnswers()) {
            BringStoreUp();
        }
        return state.isRead && state.mayTakeIn;
    }
    static_cast<void>(DatabaseAnswers());  // opens a database that was closed because it had gone
    const uint32_t openCount = DatabasePool.GetOpenCount();
    if (openCount != state.openCount && TakeOverDatabase()) {
        state.openCount = openCount;
    }
    if (AreDatabaseScriptsDue()) {
        RunDatabaseScripts();
    }
    const bool isLoaded = LoadWhatCanBeReadAgain();
    TakeBackModels();
    if (isLoaded) {
        CheckModels();
    }
    return state.mayTakeIn;
}
