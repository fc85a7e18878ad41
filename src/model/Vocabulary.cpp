#include "model/Vocabulary.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "contract/ModelTokens.h"
#include "model/ParamTypes.h"

namespace {

/// The code of each token, in the order of its list.
constexpr std::array<AggregationOperation, tokens::kOperations.size()> kOperationCodes{
    AggregationOperation::kSum,    AggregationOperation::kCount,  AggregationOperation::kMin,
    AggregationOperation::kMax,    AggregationOperation::kAvg,    AggregationOperation::kDateTime,
    AggregationOperation::kDate,   AggregationOperation::kTime,   AggregationOperation::kYear,
    AggregationOperation::kMonth,  AggregationOperation::kDay,    AggregationOperation::kHour,
    AggregationOperation::kMinute, AggregationOperation::kSecond,
};

constexpr std::array<ModelType, tokens::kModelTypes.size()> kModelTypeCodes{ModelType::kUser,
                                                                            ModelType::kAutomatic};

constexpr std::array<Policy, tokens::kPolicies.size()> kPolicyCodes{
    Policy::kMinutely, Policy::kHourly, Policy::kDaily, Policy::kWeekly,
    Policy::kMonthly,  Policy::kYearly, Policy::kNever,
};

template <class Code, std::size_t N>
Code Find(const std::array<std::string_view, N>& words, const std::array<Code, N>& codes,
          const LumString& token) {
    const auto* const found = std::find(words.begin(), words.end(), token.View());
    return found == words.end() ? Code{0} : codes[static_cast<std::size_t>(found - words.begin())];
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
    return Find(tokens::kOperations, kOperationCodes, token);
}

ModelType ModelTypeFromText(const LumString& token) {
    return Find(tokens::kModelTypes, kModelTypeCodes, token);
}

Policy UploadPolicyFromText(const LumString& token) {
    return Find(tokens::kPolicies, kPolicyCodes, token);
}

Policy DeletionPolicyFromText(const LumString& token) {
    return Find(tokens::kPolicies, kPolicyCodes, token);
}

Policy AggregationPolicyFromText(const LumString& token) {
    return Find(tokens::kPolicies, kPolicyCodes, token);
}
