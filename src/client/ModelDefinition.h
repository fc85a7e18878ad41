#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

/// The types of parameters, as the agent spells them.
inline constexpr std::string_view kTypeString = "_STRING_";
inline constexpr std::string_view kTypeInteger = "_INTEGER_";
inline constexpr std::string_view kTypeDouble = "_DOUBLE_";
inline constexpr std::string_view kTypeTimestamp = "_TIMESTAMP_";
inline constexpr std::string_view kTypeBoolean = "_BOOLEAN_";
inline constexpr std::string_view kTypeEnum = "_ENUM_";

struct ModelParameter {
    std::string name;
    std::string type;  ///< one of the types above, or empty where the agent does not say
};

/// A model as the agent describes it; parameters in the model's own order.
struct ModelDefinition {
    std::string name;
    std::string modelClass;
    std::string severity;
    std::string note;
    std::vector<ModelParameter> parameters;

    /// Null where the model has no such parameter; letter case counts.
    [[nodiscard]] const ModelParameter* Find(std::string_view parameter) const;
};

/// Reads the answer container of EventLogManagerGetModel. False where it is none.
[[nodiscard]] bool ModelDefinitionFromAnswer(const nlohmann::ordered_json& container,
                                             ModelDefinition& definition);

/// The definition as JSON, a list of one object a parameter, under the agent's own names.
[[nodiscard]] nlohmann::ordered_json ModelDefinitionToJson(const ModelDefinition& definition);
