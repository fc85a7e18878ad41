#pragma once

#include <cstdint>

#include "host/text/LumString.h"

/// The closed choices of a model file and the codes that stand for them in memory, in a model's checksum and
/// in what is keyed by them. 0 is always "unknown or not given".

enum class ParamType : uint32_t {
    kUnknown = 0,
    kString = 1,
    kInteger = 2,
    kDouble = 3,
    kTimestamp = 4,
    kBoolean = 5,
    kEnum = 6,
};

enum class AggregationOperation : uint32_t {
    kNone = 0,
    kSum = 1,
    kCount = 2,
    kMin = 3,
    kMax = 4,
    kAvg = 5,
    kDateTime = 6,
    kDate = 7,
    kTime = 8,
    kYear = 9,
    kMonth = 10,
    kWeekOfYear = 11,  ///< no token selects it; the number is kept, as the others are stored by theirs
    kDay = 12,
    kHour = 13,
    kMinute = 14,
    kSecond = 15,
};

enum class ModelType : uint32_t {
    kUnknown = 0,
    kUser = 1,       ///< events are created by other modules
    kAutomatic = 2,  ///< events are computed from those of another model
};

/// One vocabulary for the upload, deletion and aggregation policies of a model. Periods are local calendar
/// periods.
enum class Policy : uint32_t {
    kUnknown = 0,
    kMinutely = 1,
    kHourly = 2,
    kDaily = 3,
    kWeekly = 4,
    kMonthly = 5,
    kYearly = 6,
    kNever = 7,
};

/// Each converter compares the whole token, letter case included, and answers code 0 for a token that it does
/// not know.
[[nodiscard]] ParamType ParamTypeFromText(const LumString& token);
[[nodiscard]] AggregationOperation OperationFromText(const LumString& token);
[[nodiscard]] ModelType ModelTypeFromText(const LumString& token);

/// The three policies of a model share their tokens today; each has its converter, so that one may get a
/// token that the others lack.
[[nodiscard]] Policy UploadPolicyFromText(const LumString& token);
[[nodiscard]] Policy DeletionPolicyFromText(const LumString& token);
[[nodiscard]] Policy AggregationPolicyFromText(const LumString& token);
