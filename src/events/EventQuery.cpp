#include "events/EventQuery.h"

#include <memory>

#include "contract/ContainerKeys.h"
#include "host/core/ActionFrame.h"
#include "host/log/LumDebug.h"
#include "model/ModelElement.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/EventTable.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "ActionHandler_EventLogManagerGetEvents");

/// The columns before the parameters in a select: date, device id, group id.
constexpr uint32_t kFixedColumns = 3;

LumString DateFilter(const LumContainer& values) {
    LumString filter;
    int32_t date = 0;
    if (values.GetInt32(keys::kStartDate, date)) {
        filter.Printf(" WHERE E_Date >= %d", date);
    }
    if (values.GetInt32(keys::kEndDate, date)) {
        if (filter.IsEmpty()) {
            filter.Printf(" WHERE E_Date <= %d", date);
        } else {
            filter.Printf(" AND E_Date <= %d", date);
        }
    }
    return filter;
}

LumString Paging(const LumContainer& values) {
    LumString paging;
    int32_t pageSize = 0;
    if (!values.GetInt32(keys::kPageSize, pageSize) || pageSize <= 0) {
        return paging;
    }
    paging.Printf(" LIMIT %d", pageSize);
    int32_t pageNumber = 0;
    if (values.GetInt32(keys::kPageNumber, pageNumber) && pageNumber > 0) {
        LumString offset;
        offset.Printf(" OFFSET %d", pageNumber - 1);
        paging += offset;
    }
    return paging;
}

/// The clause without its direction; empty for a column that the model does not have.
LumString OrderBy(const Model_t& model, const LumString& column) {
    if (column == "EventDate") {
        return " ORDER BY E_Date ";
    }
    if (column == "EventDeviceId") {
        return " ORDER BY E_DeviceId ";
    }
    if (column == "EventGroupId") {
        return " ORDER BY E_GroupId ";
    }
    LumString clause;
    if (model.GetParams().Contains(column)) {
        clause.Printf(" ORDER BY %S%S ", kParamColumnPrefix, column);
    }
    return clause;
}

LumString Ordering(const Model_t& model, const LumContainer& values) {
    LumString column;
    if (!values.GetString(keys::kSortColumn, column)) {
        return " ORDER BY E_Date ASC";
    }
    LumString ordering = OrderBy(model, column);
    LumString direction;
    if (!ordering.IsEmpty() && values.GetString(keys::kSortDirection, direction) &&
        (direction == "Asc" || direction == "Desc")) {
        ordering += direction;
    }
    return ordering;
}

LumContainer BuildResult(const Model_t& model, GenSqlResult& events, const GenSqlResult* count) {
    LumContainer result;
    result.SetInt32(keys::kEventCount, count != nullptr ? ReadInt32(*count, 0) : 0);

    const ParamCells params(model, kFixedColumns);
    for (uint32_t row = 0; events.SelectRow(row); ++row) {
        result.SetInt32(keys::kEventDate, ReadInt32(events, 0), row);
        result.SetInt32(keys::kEventDeviceId, ReadInt32(events, 1), row);
        result.SetInt32(keys::kEventGroupId, ReadInt32(events, 2), row);
        params.Copy(events, result, row);
    }
    return result;
}

uint32_t GetEvents(const LumContainer& values, LumContainer& answer) {
    LumString name;
    if (!values.GetString(keys::kModelName, name)) {
        kRoutine.Error("Failed to get model name");
        return kActionRefused;
    }
    std::shared_ptr<Model_t> model;
    if (!ModelCollection.Get(name, model)) {
        kRoutine.Error("Unknown model '%S'", name);
        return kActionRefused;
    }
    const EventQueryText text = BuildEventQuery(*model, values);
    DatabaseScope scope(kRoutine);
    if (!scope.IsLocked()) {
        return kActionFailed;
    }
    GenSqlResult* const events = scope.Query(text.select);
    const GenSqlResult* const count = scope.Query(text.count);
    scope.Unlock();
    if (events == nullptr) {
        return kActionFailed;
    }
    answer.SetContainer(keys::kResult, BuildResult(*model, *events, count));
    return kActionDone;
}

}  // namespace

EventQueryText BuildEventQuery(const Model_t& model, const LumContainer& values) {
    EventQueryText text;
    const LumString table = EventTable(model.GetName());
    text.count.Printf("SELECT COUNT (*) FROM %S;", table);
    text.select = "SELECT ";
    text.select.Append(kDateAndIdColumns);
    AppendParamColumns(text.select, model);
    text.select += " FROM ";
    text.select += table;
    text.select += DateFilter(values);
    text.select += Ordering(model, values);
    text.select += Paging(values);
    text.select += ";";
    return text;
}

uint32_t ActionHandler_EventLogManagerGetEvents(LumContainer* container) {
    kRoutine.Trace("Entering");
    return ActionWithValues(container, GetEvents);
}
