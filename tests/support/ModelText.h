#pragma once

#include <memory>
#include <string>
#include <vector>

#include "model/Vocabulary.h"

class Model_t;

/// What a test says of a parameter; everything but the name has a value that is of no concern.
struct ParamText {
    std::string name;
    ParamType type = ParamType::kString;
    std::string source{};
    AggregationOperation operation = AggregationOperation::kNone;
    std::string defaultText{};
};

/// What a test says of a model; everything has a value that is of no concern.
struct ModelText {
    std::string name = "Logon";
    ModelType type = ModelType::kUser;
    std::string source{};
    Policy aggregation = Policy::kUnknown;
    Policy upload = Policy::kNever;
    Policy deletion = Policy::kNever;
    std::vector<ParamText> params{};
    std::vector<std::string> groupedBy{};
    std::string modelClass{"Test"};
    std::string severity{"1"};
    std::string note{"A note"};
};

/// A model with a text and a number that has a default.
inline const ModelText kLogon{
    .upload = Policy::kDaily,
    .deletion = Policy::kMonthly,
    .params = {{"User"}, {.name = "Count", .type = ParamType::kInteger, .defaultText = "0"}},
    .modelClass = "Security",
};

/// The same as a definition file. Texts go in as they stand, so that a test may break the document with them;
/// what is unknown or empty is left out.
[[nodiscard]] std::string Definition(const ModelText& text);

/// The same as an object, with its checksum. For programs that have the module linked in.
[[nodiscard]] std::shared_ptr<Model_t> MakeModel(const ModelText& text);
