#include "store/startup/UpgradeRecord.h"

#include <algorithm>
#include <vector>

#include "host/core/LumHealth.h"
#include "host/core/LumStartup.h"
#include "host/database/Database.h"
#include "host/database/SqlText.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/DatabaseSetup.h"
#include "store/DirectoryListing.h"
#include "store/DiskRoom.h"
#include "store/Paths.h"
#include "store/startup/EventManagerMerge.h"
#include "store/startup/SchemaUpgrades.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "UpgradeRecord");
constexpr const char* kHealthSource = "upgrade";

bool IsUpgradeDue() {
    bool holdsEvents = false;
    MergeFlag flag;
    {
        DatabaseScope scope(kRoutine);
        // Quiet: what cannot be read here, the steps will say themselves.
        GenSqlResult* const tables = scope.Connection().Query(
            "SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name LIKE 'Event^_%' ESCAPE '^'",
            true);
        if (tables == nullptr || !tables->GetColumn(0, holdsEvents)) {
            return false;
        }
        if (!ReadMergeFlag(scope.Connection(), flag)) {
            return false;
        }
    }
    return (holdsEvents && !flag.done) || IsSmallerVersion(6, 2, 0);
}

/// The recorded version; a field that is missing is 0.
LumString VersionText() {
    DatabaseScope scope(kRoutine);
    LumString text;
    for (const char* const name : kDatabaseVersionNames) {
        LumString query;
        query.Printf("SELECT FieldValue FROM DatabaseInformation WHERE FieldName = '%s'", name);
        int64_t number = 0;
        if (const GenSqlResult* const row = scope.Query(query)) {
            static_cast<void>(row->GetColumn(0, number));  // there may be no such row
        }
        LumString field;
        field.Printf("%s%ld", text.IsEmpty() ? "" : ".", number);
        text += field;
    }
    return text;
}

/// Copies the regular files of a directory into another one, which is made.
bool CopyFiles(const LumString& from, const LumString& to) {
    std::vector<LumString> names;
    return ListDirectory(from, names) && PathCreate(to) &&
           std::all_of(names.begin(), names.end(), [&](const LumString& name) {
               const LumString file = PathInDirectory(from, name);
               return !IsRegularFile(file) || FileCopy(file, PathInDirectory(to, name), false);
           });
}

/// Copies what is filed of a model, if anything is.
bool CopyFiledDefinitions(const LumString& modelName, const LumString& modelsCopy) {
    const LumString filed = ModelDirectory(modelName);
    std::vector<LumString> checksums;
    static_cast<void>(ListDirectory(filed, checksums));  // not every database has every model
    const LumString target = PathInDirectory(modelsCopy, modelName);
    return std::all_of(checksums.begin(), checksums.end(), [&](const LumString& checksum) {
        const LumString from = PathInDirectory(filed, checksum);
        return !DirExists(from) || CopyFiles(from, PathInDirectory(target, checksum));
    });
}

/// Copies the database as the statements see it, what lies in its write-ahead log included. The copy appears
/// whole or not at all.
bool CopyDatabase(const LumString& copy) {
    const LumString unfinished = copy + ".unfinished";
    LumString error;
    // Made beforehand so that it is nobody else's to read.
    if (!FileDelete(unfinished, true) || !FileReplace(unfinished, "", error)) {
        return false;
    }
    LumString sql;
    sql.Printf("VACUUM INTO %S", LumQuoted(unfinished.View()));
    DatabaseScope scope(kRoutine);
    if (scope.Connection().QueryWatched(sql, StartupWatch("copying the database")) != nullptr &&
        FileMove(unfinished, copy)) {
        return true;
    }
    FileDelete(unfinished, true);
    return false;
}

/// Keeps a copy of the database, and of the filed definitions, of that version.
bool KeepCopy(const LumString& version) {
    const LumString modelsCopy = ModelsCopy(version);
    // The database comes last: once its copy is there, everything is.
    const auto copyDefinitions = [&](const char* model) { return CopyFiledDefinitions(model, modelsCopy); };
    const char* const models[] = {kSoftwareDistribution, kProhibitedApplication, kMonitoredApplication};
    if (!std::all_of(std::begin(models), std::end(models), copyDefinitions)) {
        kRoutine.Warning("Failed to copy the filed definitions to '%S'", modelsCopy);
        return false;
    }
    const LumString copy = DatabaseCopy(version);
    if (!CopyDatabase(copy)) {
        kRoutine.Warning("Failed to copy the database to '%S'", copy);
        return false;
    }
    kRoutine.Print("The database of before the upgrade is kept in '%S'", copy);
    return true;
}

/// True where there is room for the steps of an upgrade and, with `withCopy`, for the copy: a step writes the
/// tables that it makes anew into the log first.
bool HasRoom(bool withCopy) {
    DatabaseScope scope(kRoutine);
    const int64_t needed = (withCopy ? 3 : 2) * LiveBytes(scope.Connection());
    const int64_t available = FreeBytes(DataDirectory);
    if (available < 0 || available > needed) {
        return true;
    }
    kRoutine.Warning("An upgrade takes %ld KB and %ld KB are free", needed / 1024, available / 1024);
    return false;
}

}  // namespace

bool UpgradeRecord::Begin() {
    const bool isDue = IsUpgradeDue();
    LumHealthReport(kHealthSource, "");
    if (!isDue) {
        return true;
    }
    const LumString version = VersionText();
    const bool isKept = IsRegularFile(DatabaseCopy(version));
    isAnnounced_ = !isKept;
    if (isAnnounced_) {
        kRoutine.Print("Found a database of version %S, which is upgraded", version);
    }
    if (!HasRoom(!isKept) || (!isKept && !KeepCopy(version))) {
        kRoutine.Error("The database is not upgraded and stays at version %S; the next start tries again",
                       version);
        LumHealthReport(kHealthSource, "The database could not be upgraded, as there is no copy of it.");
        return false;
    }
    versionBefore_ = version;
    return !LumStopRequested();
}

void UpgradeRecord::End() const {
    if (!IsUnderWay()) {
        return;
    }
    const LumString version = VersionText();
    if (isAnnounced_ || !(version == versionBefore_)) {
        kRoutine.Print("The database is at version %S", version);
    }
}
