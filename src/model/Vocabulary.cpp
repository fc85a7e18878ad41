#include "model/Vocabulary.h"

#include <string_view>

#include "model/ParamTypes.h"

namespace {

template <class Code>
struct Word {
    std::string_view token;
    Code code;
};

constexpr Word<AggregationOperation> kOperations[] = {
    {"_SUM_", AggregationOperation::kSum},       {"_COUNT_", AggregationOperation::kCount},
    {"_MIN_", AggregationOperation::kMin},       {"_MAX_", AggregationOperation::kMax},
    {"_AVG_", AggregationOperation::kAvg},       {"_DATETIME_", AggregationOperation::kDateTime},
    {"_DATE_", AggregationOperation::kDate},     {"_TIME_", AggregationOperation::kTime},
    {"_YEAR_", AggregationOperation::kYear},     {"_MONTH_", AggregationOperation::kMonth},
    {"_DAY_", AggregationOperation::kDay},       {"_HOUR_", AggregationOperation::kHour},
    {"_MINUTE_", AggregationOperation::kMinute}, {"_SECOND_", AggregationOperation::kSecond},
};

constexpr Word<ModelType> kModelTypes[] = {
    {"_EVENTLOG_MODELTYPE_USER_", ModelType::kUser},
    {"_EVENTLOG_MODELTYPE_AUTO_", ModelType::kAutomatic},
};

constexpr Word<Policy> kPolicies[] = {
    {"_MINUTELY_", Policy::kMinutely}, {"_HOURLY_", Policy::kHourly},   {"_DAILY_", Policy::kDaily},
    {"_WEEKLY_", Policy::kWeekly},     {"_MONTHLY_", Policy::kMonthly}, {"_YEARLY_", Policy::kYearly},
    {"_NEVER_", Policy::kNever},
};

template <class Code, std::size_t N>
Code Find(const Word<Code> (&words)[N], const LumString& token) {
    for (const Word<Code>& word : words) {
        if (token.View() == word.token) {
            return word.code;
        }
    }
    return Code{0};
}

}  // namespace

ParamType ParamTypeFromText(const LumString& token) {
    for (const ParamTypeTraits& traits : kParamTypes) {
        if (token.View() == traits.token) {
            return traits.type;
        }
    }
    return ParamType::kUnknown;
}

AggregationOperation OperationFromText(const LumString& token) {
    return Find(kOperations, token);
}

ModelType ModelTypeFromText(const LumString& token) {
    return Find(kModelTypes, token);
}

Policy UploadPolicyFromText(const LumString& token) {
    return Find(kPolicies, token);
}

Policy DeletionPolicyFromText(const LumString& token) {
    return Find(kPolicies, token);
}

Policy AggregationPolicyFromText(const LumString& token) {
    return Find(kPolicies, token);
}
