#include "store/startup/SchemaUpgrades.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <utility>

#include "host/database/Database.h"
#include "host/database/SqlText.h"
#include "host/database/Transaction.h"
#include "host/log/LumDebug.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/EventTable.h"
#include "store/ModelRegistry.h"
#include "store/startup/OffsetColumn.h"

namespace {

constexpr std::string_view kNotSaved = "Failed to save old model informations";

constexpr const char* kSaveSoftwareDistributions[] = {
    "CREATE TABLE Event_Temp (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_GMT_Offset INTEGER, "
    "E_DeviceId INTEGER NOT NULL, E_GroupId INTEGER NOT NULL, C__EVENTLOG_MODELPARAM_OPRULENAME_ TEXT, "
    "C__EVENTLOG_MODELPARAM_PACKAGETYPE_ TEXT, C__EVENTLOG_MODELPARAM_PACKAGESIZE_ INTEGER, "
    "C__EVENTLOG_MODELPARAM_STATUS_ TEXT)",
    "INSERT INTO Event_Temp (E_Id, E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, "
    "C__EVENTLOG_MODELPARAM_OPRULENAME_, C__EVENTLOG_MODELPARAM_PACKAGETYPE_, "
    "C__EVENTLOG_MODELPARAM_PACKAGESIZE_, C__EVENTLOG_MODELPARAM_STATUS_) SELECT E_Id, E_Date, "
    "'0' AS E_GMT_Offset, E_DeviceId, E_GroupId, C__EVENTLOG_MODELPARAM_OPRULENAME_, "
    "C__EVENTLOG_MODELPARAM_PACKAGETYPE_, C__EVENTLOG_MODELPARAM_PACKAGESIZE_, "
    "'_DB_OPRULESTATUS_EXECUTEFAILED_' AS C__EVENTLOG_MODELPARAM_STATUS_ "
    "FROM Event__EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_ WHERE C__EVENTLOG_MODELPARAM_STATUS_ = 0",
    "INSERT INTO Event_Temp (E_Id, E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, "
    "C__EVENTLOG_MODELPARAM_OPRULENAME_, C__EVENTLOG_MODELPARAM_PACKAGETYPE_, "
    "C__EVENTLOG_MODELPARAM_PACKAGESIZE_, C__EVENTLOG_MODELPARAM_STATUS_) SELECT E_Id, E_Date, "
    "'0' AS E_GMT_Offset, E_DeviceId, E_GroupId, C__EVENTLOG_MODELPARAM_OPRULENAME_, "
    "C__EVENTLOG_MODELPARAM_PACKAGETYPE_, C__EVENTLOG_MODELPARAM_PACKAGESIZE_, "
    "'_DB_OPRULESTATUS_EXECUTEDOK_' AS C__EVENTLOG_MODELPARAM_STATUS_ "
    "FROM Event__EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_ WHERE C__EVENTLOG_MODELPARAM_STATUS_ = 1",
};

constexpr const char* kSaveManagedApplications[] = {
    "CREATE TABLE Event_ProhibitedAppTemp (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, "
    "E_GMT_Offset INTEGER, E_DeviceId INTEGER NOT NULL, E_GroupId INTEGER NOT NULL, "
    "C__EVENTLOG_MODELPARAM_APPLICATIONNAME_ TEXT, C__EVENTLOG_MODELPARAM_APPLICATIONVERSION_ TEXT, "
    "C__EVENTLOG_MODELPARAM_CONNECTEDUSERDOMAIN_ TEXT, C__EVENTLOG_MODELPARAM_CONNECTEDUSER_ TEXT, "
    "C__EVENTLOG_MODELPARAM_DETECTIONTIME_ TIMESTAMP)",
    "INSERT INTO Event_ProhibitedAppTemp (E_Id, E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, "
    "C__EVENTLOG_MODELPARAM_APPLICATIONNAME_, C__EVENTLOG_MODELPARAM_APPLICATIONVERSION_, "
    "C__EVENTLOG_MODELPARAM_CONNECTEDUSERDOMAIN_, C__EVENTLOG_MODELPARAM_CONNECTEDUSER_, "
    "C__EVENTLOG_MODELPARAM_DETECTIONTIME_) SELECT E_Id, E_Date, '0' AS E_GMT_Offset, E_DeviceId, "
    "E_GroupId, C__EVENTLOG_MODELPARAM_APPLICATIONNAME_, C__EVENTLOG_MODELPARAM_APPLICATIONVERSION_, "
    "'' AS C__EVENTLOG_MODELPARAM_CONNECTEDUSERDOMAIN_, '' AS C__EVENTLOG_MODELPARAM_CONNECTEDUSER_, "
    "C__EVENTLOG_MODELPARAM_DETECTIONTIME_ FROM Event__EVENTLOG_MODELNAME_PROHIBITEDAPPLICATION_",
    "CREATE TABLE Event_MonitoredAppTemp (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, "
    "E_GMT_Offset INTEGER, E_DeviceId INTEGER NOT NULL, E_GroupId INTEGER NOT NULL, "
    "C__EVENTLOG_MODELPARAM_APPLICATIONNAME_ TEXT, C__EVENTLOG_MODELPARAM_APPLICATIONVERSION_ TEXT, "
    "C__EVENTLOG_MODELPARAM_CONNECTEDUSERDOMAIN_ TEXT, C__EVENTLOG_MODELPARAM_CONNECTEDUSER_ TEXT, "
    "C__EVENTLOG_MODELPARAM_MONITORINGDURATION_ INTEGER, C__EVENTLOG_MODELPARAM_MONITORINGENDDATE_ "
    "INTEGER, C__EVENTLOG_MODELPARAM_MONITORINGSTARTDATE_ INTEGER)",
    "INSERT INTO Event_MonitoredAppTemp (E_Id, E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, "
    "C__EVENTLOG_MODELPARAM_APPLICATIONNAME_, C__EVENTLOG_MODELPARAM_APPLICATIONVERSION_, "
    "C__EVENTLOG_MODELPARAM_CONNECTEDUSERDOMAIN_, C__EVENTLOG_MODELPARAM_CONNECTEDUSER_, "
    "C__EVENTLOG_MODELPARAM_MONITORINGDURATION_, C__EVENTLOG_MODELPARAM_MONITORINGENDDATE_, "
    "C__EVENTLOG_MODELPARAM_MONITORINGSTARTDATE_) SELECT E_Id, E_Date, '0' AS E_GMT_Offset, E_DeviceId, "
    "E_GroupId, C__EVENTLOG_MODELPARAM_APPLICATIONNAME_, C__EVENTLOG_MODELPARAM_APPLICATIONVERSION_, "
    "'' AS C__EVENTLOG_MODELPARAM_CONNECTEDUSERDOMAIN_, '' AS C__EVENTLOG_MODELPARAM_CONNECTEDUSER_, "
    "C__EVENTLOG_MODELPARAM_MONITORINGDURATION_, C__EVENTLOG_MODELPARAM_MONITORINGENDDATE_, "
    "C__EVENTLOG_MODELPARAM_MONITORINGSTARTDATE_ FROM Event__EVENTLOG_MODELNAME_MONITOREDAPPLICATION_",
};

constexpr const char* kPutManagedApplicationsBack[] = {
    "INSERT INTO Event__EVENTLOG_MODELNAME_PROHIBITEDAPPLICATION_ SELECT * FROM Event_ProhibitedAppTemp",
    "DROP TABLE Event_ProhibitedAppTemp",
    "INSERT INTO Event__EVENTLOG_MODELNAME_MONITOREDAPPLICATION_ SELECT * FROM Event_MonitoredAppTemp",
    "DROP TABLE Event_MonitoredAppTemp",
};

/// Reads one field of the version; false where there is no such number.
bool ReadVersionField(DBConnection& connection, const LumString& query, int64_t& number) {
    const GenSqlResult* const row = connection.Query(query);
    uint32_t column = 0;
    LumString text;
    if (row == nullptr || !row->FindColumn("FieldValue", column) || !row->GetColumn(column, text)) {
        return false;
    }
    text.Trim();
    // A text without a number would convert to 0, below every version.
    if (text.IsEmpty() || text.View().front() < '0' || text.View().front() > '9') {
        return false;
    }
    number = text.ToInt();
    return true;
}

/// Runs the statements of one step of rebuilding; all of them or, with the given complaint, none.
template <class Texts>
bool RunStep(DatabaseScope& scope, const LumRoutine& routine, const Texts& statements,
             std::string_view complaint) {
    if (RunInTransaction(scope.Connection(), {std::begin(statements), std::end(statements)})) {
        return true;
    }
    routine.Warning("%S", complaint);
    return false;
}

/// What UpgradeModelsWithGMTOffsetStep1 finds out, one lock at a time, before it changes anything.
class OffsetPlan {
public:
    static constexpr LumRoutine kRoutine{ModuleDebug, "UpgradeModelsWithGMTOffsetStep1"};

    /// False, after a line in the log, where the database cannot be read.
    [[nodiscard]] bool Make() {
        return ReadColumn(kSelectRegisteredNames, models_) &&
               std::all_of(models_.begin(), models_.end(),
                           [this](const LumString& model) { return Add(model); });
    }

    /// What is to be run for all models, in order.
    [[nodiscard]] const std::vector<LumString>& Statements() const { return statements_; }

private:
    [[nodiscard]] bool Add(const LumString& model) {
        const LumString table = EventTable(model);
        LumString query;
        query.Printf("SELECT sql FROM sqlite_master where type = 'table' and name = %S",
                     LumQuoted(table.View()));
        std::vector<LumString> creations;
        if (!ReadColumn(query, creations)) {
            return false;
        }
        if (!creations.empty() && HasOffsetColumn(creations.front())) {
            return true;
        }
        std::vector<LumString> statements;
        if (!creations.empty()) {
            statements = OffsetStatements(table, FreeTransitionalTable(model), creations.front());
        }
        // A model without a table, or with one that the module has not made, must not stop the others.
        if (statements.empty()) {
            kRoutine.Warning("Model '%S' has no table that can be upgraded", model);
        }
        std::move(statements.begin(), statements.end(), std::back_inserter(statements_));
        return true;
    }

    /// An earlier release took in models that are called as the transitional table of another one.
    [[nodiscard]] LumString FreeTransitionalTable(LumString model) const {
        const auto isTaken = [&model](const LumString& other) { return other.IsEqualTo(model, false); };
        do {
            model = TransitionalTable(model);
        } while (std::any_of(models_.begin(), models_.end(), isTaken));
        return EventTable(model);
    }

    /// Adds the first column of what `query` returns to `values`.
    [[nodiscard]] static bool ReadColumn(const LumString& query, std::vector<LumString>& values) {
        DatabaseScope scope(kRoutine);
        if (!scope.IsLocked()) {
            return false;
        }
        GenSqlResult* const rows = scope.Query(query);
        scope.Unlock();
        if (rows == nullptr) {
            kRoutine.Error("Failed to upgrade registered models");
            return false;
        }
        for (uint32_t i = 0; rows->SelectRow(i); ++i) {
            LumString value;
            static_cast<void>(rows->GetColumn(0, value));  // every query has one column
            values.push_back(std::move(value));
        }
        return true;
    }

    std::vector<LumString> models_;
    std::vector<LumString> statements_;
};

}  // namespace

bool IsSmallerVersion(uint32_t major, uint32_t minor, uint32_t revision) {
    constexpr LumRoutine kRoutine(ModuleDebug, "IsSmallerVersion");
    kRoutine.Trace("Entering");
    const std::array<int64_t, 3> limits = {major, minor, revision};
    DatabaseScope scope(kRoutine);
    for (std::size_t i = 0; i < limits.size(); ++i) {
        LumString query;
        query.Printf("SELECT * FROM %s WHERE %s = '%s'", "DatabaseInformation", "FieldName",
                     kDatabaseVersionNames[i]);
        int64_t recorded = 0;
        if (!ReadVersionField(scope.Connection(), query, recorded)) {
            return false;
        }
        if (recorded != limits[i]) {
            return recorded < limits[i];
        }
    }
    return false;
}

std::vector<LumString> VersionStatements(uint32_t major, uint32_t minor, uint32_t revision) {
    const std::array<uint32_t, kDatabaseVersionNames.size()> numbers = {major, minor, revision, 0};
    std::vector<LumString> statements(numbers.size());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        statements[i].Printf("UPDATE DatabaseInformation SET FieldValue=%u WHERE FieldName='%s'", numbers[i],
                             kDatabaseVersionNames[i]);
    }
    return statements;
}

void UpgradeSoftwareDistributionModelStep1() {
    constexpr LumRoutine kRoutine(ModuleDebug, "UpgradeSoftwareDistributionModelStep1");
    kRoutine.Trace("Entering");
    if (!IsSmallerVersion(5, 3, 3)) {
        return;
    }
    {
        DatabaseScope scope(kRoutine);  // without the lock the step is taken all the same
        static_cast<void>(RunStep(scope, kRoutine, kSaveSoftwareDistributions, kNotSaved));
    }
    // The old definition makes room for the new one even where its rows could not be saved.
    RemoveRegisteredModel(kSoftwareDistribution);
}

void UpgradeSoftwareDistributionModelStep2() {
    constexpr LumRoutine kRoutine(ModuleDebug, "UpgradeSoftwareDistributionModelStep2");
    kRoutine.Trace("Entering");
    if (!IsSmallerVersion(5, 3, 3)) {
        return;
    }
    std::vector<LumString> statements = {
        "INSERT INTO Event__EVENTLOG_MODELNAME_SOFTWAREDISTRIBUTION_ SELECT * FROM Event_Temp",
        "DROP TABLE Event_Temp",
    };
    for (LumString& statement : VersionStatements(5, 3, 3)) {
        statements.push_back(std::move(statement));
    }
    DatabaseScope scope(kRoutine);
    static_cast<void>(RunStep(scope, kRoutine, statements, kNotSaved));
}

void Upgrade620_Step1() {
    LumRoutine(ModuleDebug, "Upgrade620_Step1").Trace("Entering");
    if (IsSmallerVersion(6, 2, 0)) {
        UpgradeManagedApplicationModelsStep1();
    }
}

void Upgrade620_Step2() {
    constexpr LumRoutine kRoutine(ModuleDebug, "Upgrade620_Step2");
    kRoutine.Trace("Entering");
    if (!IsSmallerVersion(6, 2, 0)) {
        return;
    }
    UpgradeManagedApplicationModelsStep2();
    UpgradeModelsWithGMTOffsetStep1();
    const std::vector<LumString> statements = VersionStatements(6, 2, 0);
    DatabaseScope scope(kRoutine);
    static_cast<void>(RunStep(scope, kRoutine, statements, "Failed finish upgrade."));
}

void UpgradeManagedApplicationModelsStep1() {
    constexpr LumRoutine kRoutine(ModuleDebug, "UpgradeManagedApplicationModelsStep1");
    kRoutine.Trace("Entering");
    DatabaseScope scope(kRoutine);
    if (RunStep(scope, kRoutine, kSaveManagedApplications, kNotSaved)) {
        RemoveRegisteredModel(kProhibitedApplication);
        RemoveRegisteredModel(kMonitoredApplication);
    }
}

void UpgradeManagedApplicationModelsStep2() {
    constexpr LumRoutine kRoutine(ModuleDebug, "UpgradeManagedApplicationModelsStep2");
    kRoutine.Trace("Entering");
    DatabaseScope scope(kRoutine);
    static_cast<void>(RunStep(scope, kRoutine, kPutManagedApplicationsBack, kNotSaved));
}

void UpgradeModelsWithGMTOffsetStep1() {
    OffsetPlan::kRoutine.Trace("Entering");
    OffsetPlan plan;
    if (!IsSmallerVersion(6, 2, 0) || !plan.Make()) {
        return;
    }
    DatabaseScope scope(OffsetPlan::kRoutine);
    static_cast<void>(RunStep(scope, OffsetPlan::kRoutine, plan.Statements(), "Failed upgrade model"));
}
