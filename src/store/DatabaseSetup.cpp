#include "store/DatabaseSetup.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include "host/core/LumHealth.h"
#include "host/core/LumStartup.h"
#include "host/database/Database.h"
#include "host/ini/IniFile.h"
#include "host/log/LumDebug.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/DiskRoom.h"
#include "store/Paths.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "InitializeDatabase");
constexpr std::chrono::seconds kBetweenReports{2};

void ReportChange(const LumString& reason) {
    LumString sentence;
    if (!reason.IsEmpty()) {
        sentence.Printf("The last change of the database failed: %S.", reason);
    }
    LumHealthReport("database", sentence);
}

std::atomic<bool> scriptsAreDue{false};

/// Asks one object each time, which says once why the file cannot be read.
bool CanReadScripts() {
    static std::mutex mutex;
    static IniFile ini;  // guarded by mutex
    const std::lock_guard<std::mutex> guard(mutex);
    if (!(ini.GetPath() == IniFilePath)) {
        ini = IniFile(IniFilePath);
    }
    std::vector<std::pair<LumString, LumString>> unused;
    return ini.ReadEntries("SqlRun", unused);
}

void RunScripts(DBConnection& connection) {
    if (!CanReadScripts()) {
        scriptsAreDue = true;
        return;
    }
    connection.RunIniScripts(IniFilePath, "SqlRun", false);
    connection.RunIniScripts(IniFilePath, "SqlRunOnce", true);
    connection.RunUpgrade("DatabaseInformation", "FieldName", "FieldValue", IniFilePath, "SqlUpgrade",
                          nullptr);
    scriptsAreDue = connection.HasFailedByMachine();
}

/// True where there is room for what a compaction writes: the live pages once into a temporary file and once
/// into the log.
bool HasRoomToCompact(DBConnection& connection) {
    const int64_t needed = 2 * LiveBytes(connection);
    const int64_t available = FreeBytes(DataDirectory);
    if (available < 0 || available > needed) {
        return true;
    }
    kRoutine.Warning("The database is not compacted: that takes %ld KB and %ld KB are free", needed / 1024,
                     available / 1024);
    return false;
}

/// The checks make SQLite read the whole file before and after it is compacted. What they find is not looked
/// at: a damaged database is used for as long as it answers. The log is taken in before, so that nothing but
/// the compaction is in it, and cut back afterwards, whatever came of it: it has grown by all of the
/// database.
void CheckAndCompact(DBConnection& connection) {
    connection.CutLogBack();
    static_cast<void>(
        connection.QueryWatched("pragma integrity_check", StartupWatch("checking the database")));
    if (!LumStopRequested() && HasRoomToCompact(connection)) {
        static_cast<void>(connection.QueryWatched("vacuum", StartupWatch("compacting the database")));
        connection.CutLogBack();
    }
    if (!LumStopRequested()) {
        static_cast<void>(
            connection.QueryWatched("pragma integrity_check", StartupWatch("checking the database again")));
    }
}

}  // namespace

void InitializeDatabase() {
    kRoutine.Trace("Entering");
    DatabasePool.SetDebug(ModuleDebug);
    DatabasePool.SetChangeAction(ReportChange);
    ReportChange("");
    DatabasePool.SetDatabase("SQLITE23", "", DatabasePath, "", "", 0);
    DatabasePool.SetSerialConnections(true);

    DatabaseScope scope(kRoutine);
    if (!scope.IsLocked()) {
        return;
    }
    RunScripts(scope.Connection());
    CheckAndCompact(scope.Connection());
}

void RunDatabaseScripts() {
    DatabaseScope scope(LumRoutine(ModuleDebug, "RunDatabaseScripts"));
    if (scope.IsLocked()) {
        RunScripts(scope.Connection());
    }
}

bool AreDatabaseScriptsDue() {
    return scriptsAreDue;
}

std::function<bool(uint32_t percent)> StartupWatch(std::string_view work) {
    using Clock = std::chrono::steady_clock;
    return [work, last = Clock::now()](uint32_t percent) mutable {
        if (Clock::now() - last >= kBetweenReports) {
            last = Clock::now();
            LumString phrase;
            phrase.Printf("%S, %u %%", work, percent);
            LumStartupReport(phrase);
        }
        return !LumStopRequested();
    };
}
