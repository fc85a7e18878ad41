#include "store/DatabaseSetup.h"

#include "host/database/Database.h"
#include "host/log/LumDebug.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/Paths.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "InitializeDatabase");

}  // namespace

void InitializeDatabase() {
    kRoutine.Trace("Entering");
    DatabasePool.SetDebug(ModuleDebug);
    DatabasePool.SetDatabase("SQLITE23", "", DatabasePath, "", "", 0);
    DatabasePool.SetSerialConnections(true);

    DatabaseScope scope(kRoutine);
    if (!scope.IsLocked()) {
        return;
    }
    DBConnection& connection = scope.Connection();
    connection.RunIniScripts(IniFilePath, "SqlRun", false);
    connection.RunIniScripts(IniFilePath, "SqlRunOnce", true);
    connection.RunUpgrade("DatabaseInformation", "FieldName", "FieldValue", IniFilePath, "SqlUpgrade",
                          nullptr);

    // The checks make SQLite read the whole file before and after it is compacted. What they find is not
    // looked at: a damaged database is used for as long as it answers.
    for (const char* statement : {"pragma integrity_check", "vacuum", "pragma integrity_check"}) {
        static_cast<void>(connection.Query(statement));
    }
}
