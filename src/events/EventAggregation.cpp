#include "events/EventAggregation.h"

#include <algorithm>
#include <array>
#include <vector>

#include "host/database/Transaction.h"
#include "host/log/LumDebug.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"
#include "store/EventTable.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "AggregateEvents");

/// What stands before and after the source column in a select expression; one row an operation, by its code.
struct SelectExpression {
    const char* before;
    const char* after;
};

constexpr std::array<SelectExpression, 16> kSelects = {{
    {", ", ""},
    {", SUM (", ")"},
    {", COUNT (", ")"},
    {", MIN (", ")"},
    {", MAX (", ")"},
    {", AVG (", ")"},
    {", datetime (", ",'unixepoch', 'localtime')"},
    {", date (", ",'unixepoch', 'localtime')"},
    {", time (", ",'unixepoch', 'localtime')"},
    {", strftime ('%Y',", ",'unixepoch', 'localtime')"},
    {", strftime ('%m',", ",'unixepoch', 'localtime')"},
    {", strftime ('%W',", ",'unixepoch', 'localtime')"},
    {", strftime ('%d',", ",'unixepoch', 'localtime')"},
    {", strftime ('%H',", ",'unixepoch', 'localtime')"},
    {", strftime ('%M',", ",'unixepoch', 'localtime')"},
    {", strftime ('%S',", ",'unixepoch', 'localtime')"},
}};

void AppendSelect(LumString& selects, const ModelParam_t& param) {
    const auto code = static_cast<std::size_t>(param.GetOperation());
    if (code < kSelects.size()) {
        selects += kSelects[code].before;
        selects.Append(kParamColumnPrefix);
        selects += param.GetSource();
        selects += kSelects[code].after;
    }
}

void LogDone(const Model_t& model, bool aggregationEnabled, bool modelEnabled) {
    if (!aggregationEnabled) {
        kRoutine.Trace("Aggregation is disabled, ignoring events for model '%S'", model.GetName());
    } else if (!modelEnabled) {
        kRoutine.Trace("Ignoring events for disabled model '%S'", model.GetName());
    } else {
        kRoutine.Trace("Model '%S' has been aggregated into model '%S' with success", model.GetSource(),
                       model.GetName());
    }
}

}  // namespace

std::optional<EventWindow> AggregationWindow(Policy policy, LumSeconds start, LumSeconds end,
                                             LumSeconds last) {
    const EventWindow window{std::max(PeriodStart(policy, start), last), PeriodStart(policy, end)};
    return window.end > last ? std::optional(window) : std::nullopt;
}

std::string_view BucketExpression(Policy policy) {
    switch (policy) {
        case Policy::kMinutely:
            return "strftime('%Y,%m,%%d,%H,%M', E_Date, 'unixepoch', 'localtime')";
        case Policy::kHourly:
            return "strftime('%Y,%m,%%d,%H', E_Date, 'unixepoch', 'localtime')";
        case Policy::kDaily:
            return "strftime('%Y,%m,%%d', E_Date, 'unixepoch', 'localtime')";
        case Policy::kWeekly:
            return "strftime('%Y,%m,%W', E_Date, 'unixepoch', 'localtime')";
        case Policy::kMonthly:
            return "strftime('%Y,%m', E_Date, 'unixepoch', 'localtime')";
        case Policy::kYearly:
            return "strftime('%Y', E_Date, 'unixepoch', 'localtime')";
        default:
            return "";
    }
}

LumString BuildAggregation(const Model_t& model, EventWindow window) {
    LumString columns(kDateAndIdColumns);
    AppendParamColumns(columns, model);
    LumString selects("MAX (E_Date), E_DeviceID, E_GroupID");
    ForEachParam(model, [&selects](const ModelParam_t& param, uint32_t) {
        AppendSelect(selects, param);
        return true;
    });
    LumString when;
    when.Printf("E_Date >= %ld AND E_Date < %ld", int64_t{window.start}, int64_t{window.end});
    LumString grouping;
    grouping.Printf("E_GroupID, E_DeviceID, %S", BucketExpression(model.GetAggregationPolicy()));
    std::shared_ptr<ModelParamAgg_t> entry;
    for (uint32_t i = 0; model.GetAggregations().GetAt(i, entry); ++i) {
        AppendParamColumn(grouping, entry->GetName());
    }
    LumString statement;
    statement.Printf("INSERT INTO %S ( %S ) SELECT %S FROM %S WHERE %S GROUP BY %S",
                     EventTable(model.GetName()), columns, selects, EventTable(model.GetSource()), when,
                     grouping);
    return statement;
}

bool AggregateEvents(const std::shared_ptr<Model_t>& model, LumSeconds start, LumSeconds end,
                     bool /*scheduled*/) {
    kRoutine.Trace("Entering");
    if (model == nullptr) {
        return false;
    }
    const LumString& name = model->GetName();
    if (model->GetType() != ModelType::kAutomatic) {
        kRoutine.Warning("Aggregation cannot be invoked for non automatic model '%S'", name);
        return false;
    }
    const std::optional<EventWindow> window =
        AggregationWindow(model->GetAggregationPolicy(), start, end, model->GetLastAggregationTime());
    if (!window.has_value()) {
        kRoutine.Trace("Nothing to aggregate for model '%S'", name);
        return true;
    }
    const bool aggregationEnabled = AggregationEnabled.load(std::memory_order_relaxed);
    const bool modelEnabled = model->IsEnabled();
    std::vector<LumString> statements = {UpdateLastAggregation(name, window->end)};
    if (aggregationEnabled && modelEnabled) {
        statements.push_back(BuildAggregation(*model, *window));
    }
    DatabaseScope scope(kRoutine);
    if (!scope.IsLocked()) {
        return false;
    }
    const bool done = RunInTransaction(scope.Connection(), statements);
    if (done) {
        model->SetLastAggregationTime(window->end);
    }
    scope.Unlock();
    if (!done) {
        kRoutine.Error("Failed to aggregate model '%S' into model '%S', SQL error", model->GetSource(), name);
        return false;
    }
    LogDone(*model, aggregationEnabled, modelEnabled);
    return true;
}
