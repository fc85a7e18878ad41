#pragma once

#include <memory>

#include "host/container/LumContainer.h"
#include "host/log/LumDebug.h"
#include "model/Model.h"

/// The parameters of a model as a container: the name and the type token of each at its position. A parameter
/// of a type that nobody knows has no token.
[[nodiscard]] LumContainer DescribeParams(const Model_t& model);

/// Finds the model that the arguments of an action name under "ModelName". Null after an error line of
/// `routine` that says whether the name or the model is missing.
[[nodiscard]] std::shared_ptr<Model_t> FindNamedModel(const LumContainer& values, const LumRoutine& routine);
