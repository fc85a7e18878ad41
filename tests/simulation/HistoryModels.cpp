#include "simulation/HistoryModels.h"

namespace {

ParamText Param(const char* name, ParamType type, const char* source = "",
                AggregationOperation operation = AggregationOperation::kNone, const char* text = "") {
    return {name, type, source, operation, text};
}

}  // namespace

const std::vector<ModelText>& HistoryModels() {
    using enum ParamType;
    using enum AggregationOperation;
    static const std::vector<ModelText> definitions = {
        {.name = "Logon",
         .upload = Policy::kHourly,
         .deletion = Policy::kMonthly,
         .params = {Param("User", kString), Param("Count", kInteger, "", kNone, "7")}},
        {.name = "Minute",
         .upload = Policy::kMinutely,
         .deletion = Policy::kWeekly,
         .params = {Param("User", kString, "", kNone, "nobody"), Param("Count", kInteger, "", kNone, "1")}},
        {.name = "Logon",
         .upload = Policy::kDaily,
         .deletion = Policy::kDaily,
         .params = {Param("User", kString), Param("Count", kInteger), Param("Extra", kString)}},
        {.name = "ByHour",
         .type = ModelType::kAutomatic,
         .source = "Logon",
         .aggregation = Policy::kHourly,
         .upload = Policy::kDaily,
         .deletion = Policy::kYearly,
         .params = {Param("Events", kInteger, "User", kCount), Param("Total", kInteger, "Count", kSum)}},
        {.name = "ByMonth",
         .type = ModelType::kAutomatic,
         .source = "Minute",
         .aggregation = Policy::kMonthly,
         .upload = Policy::kWeekly,
         .deletion = Policy::kNever,
         .params = {Param("Name", kString, "User"), Param("Top", kInteger, "Count", kMax)},
         .groupedBy = {"User"}},
        {.name = "Orphan",
         .type = ModelType::kAutomatic,
         .source = "Nobody",
         .aggregation = Policy::kMinutely,
         .upload = Policy::kYearly,
         .deletion = Policy::kNever,
         .params = {Param("Events", kInteger, "User", kCount)}},
    };
    return definitions;
}
