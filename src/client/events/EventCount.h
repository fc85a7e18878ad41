#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "client/connection/AgentCall.h"

/// How many events a model has before a moment, or all together where none is given. The agent counts all of
/// them and answers any one by its place in the order of the dates, so a moment is found in a few questions.
/// Throws a ClientError where the agent does not answer.
[[nodiscard]] int64_t CountEvents(AgentConnection& agent, const std::string& model,
                                  std::optional<int32_t> before);
