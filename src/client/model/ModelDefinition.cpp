#include "client/model/ModelDefinition.h"

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>

#include "client/connection/Answer.h"
#include "contract/ContainerKeys.h"

const ModelParameter* ModelDefinition::Find(std::string_view parameter) const {
    const auto found = std::find_if(parameters.begin(), parameters.end(),
                                    [&](const ModelParameter& known) { return known.name == parameter; });
    return found == parameters.end() ? nullptr : &*found;
}

std::optional<ModelDefinition> ModelDefinitionFromAnswer(const nlohmann::ordered_json& container) {
    const nlohmann::ordered_json& modelDef = MemberOf(MemberOf(container, keys::kResult), keys::kModelDef);
    if (!modelDef.is_object()) {
        return std::nullopt;
    }
    ModelDefinition definition;
    definition.name = TextOf(MemberOf(modelDef, keys::kModelName));
    definition.modelClass = TextOf(MemberOf(modelDef, keys::kModelClass));
    definition.severity = TextOf(MemberOf(modelDef, keys::kModelSeverity));
    definition.note = TextOf(MemberOf(modelDef, keys::kModelNote));
    const nlohmann::ordered_json& variables = MemberOf(modelDef, keys::kModelVars);
    const std::size_t count = RowCount(variables);
    for (std::size_t i = 0; i < count; ++i) {
        definition.parameters.push_back({TextOf(ValueAt(MemberOf(variables, keys::kModelVarName), i)),
                                         TextOf(ValueAt(MemberOf(variables, keys::kModelVarType), i))});
    }
    return definition;
}

nlohmann::ordered_json ModelDefinitionToJson(const ModelDefinition& definition) {
    nlohmann::ordered_json variables = nlohmann::ordered_json::array();
    for (const ModelParameter& parameter : definition.parameters) {
        nlohmann::ordered_json variable;
        variable[keys::kModelVarName] = parameter.name;
        if (!parameter.type.empty()) {
            variable[keys::kModelVarType] = parameter.type;
        }
        variables.push_back(std::move(variable));
    }
    nlohmann::ordered_json json;
    json[keys::kModelName] = definition.name;
    json[keys::kModelClass] = definition.modelClass;
    json[keys::kModelSeverity] = definition.severity;
    json[keys::kModelNote] = definition.note;
    json[keys::kModelVars] = std::move(variables);
    return json;
}
