#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "contract/ParamTypeTokens.h"

struct ModelParameter {
    std::string name;
    std::string type;  ///< one of ParamTypeTokens.h, or empty where the agent does not say
};

/// A model as the agent describes it; parameters in the model's own order.
struct ModelDefinition {
    std::string name;
    std::string modelClass;
    std::string severity;
    std::string note;
    bool enabled = true;  ///< of a model that was fetched
    std::vector<ModelParameter> parameters;

    /// Null where the model has no such parameter; letter case counts.
    [[nodiscard]] const ModelParameter* Find(std::string_view parameter) const;
};

/// Reads the answer container of EventLogManagerGetModel; nothing where it is not one.
[[nodiscard]] std::optional<ModelDefinition> ModelDefinitionFromAnswer(
    const nlohmann::ordered_json& container);

/// The definition as JSON, a list of one object a parameter, under the agent's own names.
[[nodiscard]] nlohmann::ordered_json ModelDefinitionToJson(const ModelDefinition& definition);
