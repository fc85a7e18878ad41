#include "client/ModelDefinition.h"

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>

#include "client/Answer.h"

const ModelParameter* ModelDefinition::Find(std::string_view parameter) const {
    const auto found = std::find_if(parameters.begin(), parameters.end(),
                                    [&](const ModelParameter& known) { return known.name == parameter; });
    return found == parameters.end() ? nullptr : &*found;
}

bool ModelDefinitionFromAnswer(const nlohmann::ordered_json& container, ModelDefinition& definition) {
    const nlohmann::ordered_json& modelDef = MemberOf(MemberOf(container, "Result"), "ModelDef");
    if (!modelDef.is_object()) {
        return false;
    }
    definition.name = TextOf(MemberOf(modelDef, "ModelName"));
    definition.modelClass = TextOf(MemberOf(modelDef, "ModelClass"));
    definition.severity = TextOf(MemberOf(modelDef, "ModelSeverity"));
    definition.note = TextOf(MemberOf(modelDef, "ModelNote"));
    const nlohmann::ordered_json& variables = MemberOf(modelDef, "ModelVars");
    const std::size_t count = RowCount(variables);
    definition.parameters.clear();
    for (std::size_t i = 0; i < count; ++i) {
        definition.parameters.push_back({TextOf(ValueAt(MemberOf(variables, "ModelVarName"), i)),
                                         TextOf(ValueAt(MemberOf(variables, "ModelVarType"), i))});
    }
    return true;
}

nlohmann::ordered_json ModelDefinitionToJson(const ModelDefinition& definition) {
    nlohmann::ordered_json variables = nlohmann::ordered_json::array();
    for (const ModelParameter& parameter : definition.parameters) {
        nlohmann::ordered_json variable;
        variable["ModelVarName"] = parameter.name;
        if (!parameter.type.empty()) {
            variable["ModelVarType"] = parameter.type;
        }
        variables.push_back(std::move(variable));
    }
    nlohmann::ordered_json json;
    json["ModelName"] = definition.name;
    json["ModelClass"] = definition.modelClass;
    json["ModelSeverity"] = definition.severity;
    json["ModelNote"] = definition.note;
    json["ModelVars"] = std::move(variables);
    return json;
}
