#include "store/ModelNames.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "contract/ContainerKeys.h"
#include "host/database/SqlText.h"
#include "store/EventTable.h"

namespace {

constexpr const char* kTransitionalNames[] = {"Temp", "ProhibitedAppTemp", "MonitoredAppTemp"};
constexpr const char* kFixedKeys[] = {keys::kEventDate,    keys::kEventGmtOffset, keys::kEventDeviceId,
                                      keys::kEventGroupId, keys::kEventCount,     keys::kModelDef};

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

bool ParamIsUsable(const Model_t& model, const ModelParam_t& param, const LumRoutine& routine) {
    const LumString& name = param.GetName();
    if (!IsNamePart(name)) {
        routine.Error("Parameter name '%S' of model '%S' is not a column name", name, model.GetName());
        return false;
    }
    if (std::any_of(std::begin(kFixedKeys), std::end(kFixedKeys),
                    [&name](const char* key) { return name == key; })) {
        routine.Error("Parameter name '%S' of model '%S' is a fixed key of answers and files", name,
                      model.GetName());
        return false;
    }
    return true;
}

/// The registered model that would share a transitional table with one called `name`; empty where there is
/// none. The database tells table names apart without letter case.
LumString RivalOf(const LumString& name, DBConnection& connection) {
    const LumString longer = TransitionalTable(name);
    LumString query;
    query.Printf("%s WHERE RM_ModelName = %S COLLATE NOCASE OR RM_ModelName || 'Temp' = %S COLLATE NOCASE",
                 kSelectRegisteredNames, LumQuoted(longer.View()), LumQuoted(name.View()));
    LumString rival;
    // Where the table cannot be read the model cannot be registered either, which is said there.
    if (const GenSqlResult* const rows = connection.Query(query, true)) {
        static_cast<void>(rows->GetColumn(0, rival));  // no row, no rival
    }
    return rival;
}

bool IsTransitional(const LumString& name) {
    return std::any_of(std::begin(kTransitionalNames), std::end(kTransitionalNames),
                       [&name](const char* taken) { return name.IsEqualTo(taken, false); });
}

}  // namespace

bool NamesAreUsable(const Model_t& model, DBConnection& connection, const LumRoutine& routine) {
    const LumString& name = model.GetName();
    if (!IsNamePart(name) || !FitsFileSystem(name)) {
        routine.Error("Model name '%S' is not a table name", name);
        return false;
    }
    if (IsTransitional(name)) {
        routine.Error("Model name '%S' is that of a table which upgrades use", name);
        return false;
    }
    const LumString rival = RivalOf(name, connection);
    if (!rival.IsEmpty()) {
        routine.Error("Model name '%S' and that of model '%S' differ by the 'Temp' that upgrades append",
                      name, rival);
        return false;
    }
    return ForEachParam(model, [&](const ModelParam_t& param, uint32_t /*position*/) {
        return ParamIsUsable(model, param, routine);
    });
}
