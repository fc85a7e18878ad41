#include "store/startup/EventManagerMerge.h"

#include "host/core/LumAgent.h"
#include "host/database/Transaction.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/startup/SchemaUpgrades.h"

namespace {

constexpr LumRoutine kUpgrade1000(ModuleDebug, "Upgrade1000");
constexpr const char* kOlderModule = "EventManager";

void RecordVersion() {
    DatabaseScope scope(kUpgrade1000);  // without the lock the version is written all the same
    if (!RunInTransaction(scope.Connection(), VersionStatements(10, 0, 0))) {
        kUpgrade1000.Warning("Failed finish upgrade.");
    }
}

}  // namespace

bool ReadMergeFlag(DBConnection& connection, MergeFlag& flag) {
    const GenSqlResult* const rows =
        connection.Query("SELECT FieldValue FROM DatabaseInformation WHERE FieldName='EventManagerMerge'");
    if (rows == nullptr) {
        return false;
    }
    LumString value;
    flag.recorded = rows->GetColumn(0, value);
    flag.done = flag.recorded && value == "1";
    return true;
}

void Upgrade1000() {
    kUpgrade1000.Trace("Entering");
    DBConnection connection(DatabasePool);
    MergeFlag flag;
    if (!ReadMergeFlag(connection, flag) || flag.done || !RetireEventManagerModule()) {
        return;
    }
    // A flag that could not be written only means that there is nothing left to retire at the next start.
    static_cast<void>(connection.Query(
        flag.recorded
            ? "UPDATE DatabaseInformation SET FieldValue='1'WHERE FieldName='EventManagerMerge'"
            : "INSERT INTO DatabaseInformation (FieldName, FieldValue) VALUES ('EventManagerMerge', '1')"));
    RecordVersion();
}

bool RetireEventManagerModule() {
    LumRoutine(ModuleDebug, "RetireEventManagerModule").Trace("Entering");
    LumString iniFile;
    LumAgentGetConfigDir(iniFile);
    iniFile += kOlderModule;
    iniFile += ".ini";
    // An entry that stays makes the agent say at its start that the module's file is missing, and no more.
    static_cast<void>(LumAgentIni()->DeleteEntry("Modules", kOlderModule));
    if (!FileDelete(iniFile, true)) {
        return false;
    }
    LumString path;
    LumAgentGetDataDir(path);
    path += kOlderModule;
    if (!DirDelete(path, true, true)) {
        return false;
    }
    path += "../modules/agent/EventManager.dll";
    return FileDelete(path, true);
}
