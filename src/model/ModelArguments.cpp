#include "model/ModelArguments.h"

#include "contract/ContainerKeys.h"
#include "host/log/LumDebug.h"
#include "model/ModelElement.h"
#include "model/ModuleLog.h"
#include "model/ParamTypes.h"

LumContainer DescribeParams(const Model_t& model) {
    LumContainer params;
    ForEachParam(model, [&params](const ModelParam_t& param, uint32_t position) {
        params.SetString(keys::kModelVarName, param.GetName(), position);
        if (const ParamTypeTraits* const traits = FindParamType(param.GetType())) {
            params.SetString(keys::kModelVarType, LumString(traits->token), position);
        }
        return true;
    });
    return params;
}

std::shared_ptr<Model_t> FindNamedModel(const LumContainer& values, const LumRoutine& routine) {
    LumString name;
    if (!values.GetString(keys::kModelName, name)) {
        routine.Error("Failed to get model name");
        return nullptr;
    }
    std::shared_ptr<Model_t> model;
    if (!ModelCollection.Get(name, model)) {
        routine.Error("Failed to get model '%S'", name);
    }
    return model;
}
