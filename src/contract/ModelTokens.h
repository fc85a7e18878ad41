#pragma once

#include <array>
#include <string_view>

#include "contract/ParamTypeTokens.h"

/// The closed choices of definition files, as they are spelled there. (ParamTypeTokens.h has the types of
/// parameters.)

namespace tokens {

inline constexpr std::string_view kUserModel = "_EVENTLOG_MODELTYPE_USER_";
inline constexpr std::string_view kAutomaticModel = "_EVENTLOG_MODELTYPE_AUTO_";

inline constexpr std::array<std::string_view, 2> kModelTypes{kUserModel, kAutomaticModel};

inline constexpr std::array<std::string_view, 6> kParamTypes{kTypeString,    kTypeInteger, kTypeDouble,
                                                             kTypeTimestamp, kTypeBoolean, kTypeEnum};

/// The periods of the upload, deletion and aggregation policies, the shortest first.
inline constexpr std::array<std::string_view, 7> kPolicies{"_MINUTELY_", "_HOURLY_", "_DAILY_", "_WEEKLY_",
                                                           "_MONTHLY_",  "_YEARLY_", "_NEVER_"};

/// How a parameter of an automatic model is computed.
inline constexpr std::array<std::string_view, 14> kOperations{
    "_SUM_",  "_COUNT_", "_MIN_",   "_MAX_", "_AVG_",  "_DATETIME_", "_DATE_",
    "_TIME_", "_YEAR_",  "_MONTH_", "_DAY_", "_HOUR_", "_MINUTE_",   "_SECOND_"};

}  // namespace tokens
