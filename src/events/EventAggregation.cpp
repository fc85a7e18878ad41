#include "events/EventAggregation.h"

#include <algorithm>
#include <array>
#include <vector>

#include "host/log/LumDebug.h"
#include "model/ModuleLog.h"
#include "store/DatabaseScope.h"

namespace {

constexpr std::string_view kRoutine = "AggregateEvents";

/// What stands before and behind the source column in a select expression; one row an operation, by its code.
struct SelectExpression {
    const char* before;
    const char* behind;
};

constexpr std::array<SelectExpression, 16> kSelects = {{
    {", C_", ""},
    {", SUM (C_", ")"},
    {", COUNT (C_", ")"},
    {", MIN (C_", ")"},
    {", MAX (C_", ")"},
    {", AVG (C_", ")"},
    {", datetime (C_", ",'unixepoch', 'localtime')"},
    {", date (C_", ",'unixepoch', 'localtime')"},
    {", time (C_", ",'unixepoch', 'localtime')"},
    {", strftime ('%Y',C_", ",'unixepoch', 'localtime')"},
    {", strftime ('%m',C_", ",'unixepoch', 'localtime')"},
    {", strftime ('%W',C_", ",'unixepoch', 'localtime')"},
    {", strftime ('%d',C_", ",'unixepoch', 'localtime')"},
    {", strftime ('%H',C_", ",'unixepoch', 'localtime')"},
    {", strftime ('%M',C_", ",'unixepoch', 'localtime')"},
    {", strftime ('%S',C_", ",'unixepoch', 'localtime')"},
}};

void AppendSelect(LumString& selects, const ModelParam_t& param) {
    const auto code = static_cast<std::size_t>(param.GetOperation());
    if (code < kSelects.size()) {
        selects += kSelects[code].before;
        selects += param.GetSource();
        selects += kSelects[code].behind;
    }
}

void LogDone(const Model_t& model, bool aggregationEnabled, bool modelEnabled) {
    if (!aggregationEnabled) {
        ModuleDebug.TraceWithNL("%S: Aggregation is disabled, ignoring events for model '%S'", kRoutine,
                                model.GetName());
    } else if (!modelEnabled) {
        ModuleDebug.TraceWithNL("%S: Ignoring events for disabled model '%S'", kRoutine, model.GetName());
    } else {
        ModuleDebug.TraceWithNL("%S: Model '%S' has been aggregated into model '%S' with success", kRoutine,
                                model.GetSource(), model.GetName());
    }
}

}  // namespace

std::optional<EventWindow> AggregationWindow(Policy policy, int32_t start, int32_t end, int32_t last) {
    const EventWindow window{std::max(static_cast<int32_t>(PeriodStart(policy, start)), last),
                             static_cast<int32_t>(PeriodStart(policy, end))};
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
    LumString columns("E_Date, E_DeviceID, E_GroupID");
    LumString selects("MAX (E_Date), E_DeviceID, E_GroupID");
    ForEachParam(model, [&](const ModelParam_t& param, uint32_t) {
        columns += ", C_";
        columns += param.GetName();
        AppendSelect(selects, param);
        return true;
    });
    LumString when;
    when.Printf("E_Date >= %ld AND E_Date < %ld", int64_t{window.start}, int64_t{window.end});
    LumString grouping;
    grouping.Printf("E_GroupID, E_DeviceID, %S", BucketExpression(model.GetAggregationPolicy()));
    std::shared_ptr<ModelParamAgg_t> entry;
    for (uint32_t i = 0; model.GetAggregations().GetAt(i, entry); ++i) {
        grouping += ", C_";
        grouping += entry->GetName();
    }
    LumString statement;
    statement.Printf("INSERT INTO Event_%S ( %S ) SELECT %S FROM Event_%S WHERE %S GROUP BY %S",
                     model.GetName(), columns, selects, model.GetSource(), when, grouping);
    return statement;
}

bool AggregateEvents(const std::shared_ptr<Model_t>& model, uint32_t start, uint32_t end,
                     bool /*scheduled*/) {
    ModuleDebug.TraceWithNL("%S: Entering", kRoutine);
    if (model == nullptr) {
        return false;
    }
    const LumString& name = model->GetName();
    if (model->GetType() != ModelType::kAutomatic) {
        ModuleDebug.WarningWithNL("%S: Aggregation cannot be invoked for non automatic model '%S'", kRoutine,
                                  name);
        return false;
    }
    const std::optional<EventWindow> window =
        AggregationWindow(model->GetAggregationPolicy(), static_cast<int32_t>(start),
                          static_cast<int32_t>(end), static_cast<int32_t>(model->GetLastAggregationTime()));
    if (!window.has_value()) {
        ModuleDebug.TraceWithNL("%S: Nothing to aggregate for model '%S'", kRoutine, name);
        return true;
    }
    const bool aggregationEnabled = AggregationEnabled.load(std::memory_order_relaxed);
    const bool modelEnabled = model->IsEnabled();
    std::vector<LumString> statements(1);
    statements[0].Printf(
        "UPDATE RegisteredModel SET RM_LastAggregationTimestamp = %ld WHERE RM_ModelName = '%S';",
        int64_t{window->end}, name);
    if (aggregationEnabled && modelEnabled) {
        statements.push_back(BuildAggregation(*model, *window));
    }
    DatabaseScope scope(kRoutine);
    if (!scope.IsLocked()) {
        return false;
    }
    const bool done = RunInTransaction(scope.Connection(), statements);
    if (done) {
        model->SetLastAggregationTime(static_cast<uint32_t>(window->end));
    }
    scope.Unlock();
    if (!done) {
        ModuleDebug.ErrorWithNL("%S: Failed to aggregate model '%S' into model '%S', SQL error", kRoutine,
                                model->GetSource(), name);
        return false;
    }
    LogDone(*model, aggregationEnabled, modelEnabled);
    return true;
}
