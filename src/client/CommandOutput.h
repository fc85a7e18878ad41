#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "client/AgentCall.h"
#include "client/CommandContext.h"
#include "client/ExitStatus.h"
#include "client/ModelDefinition.h"

/// What the commands have in common.

/// Writes "lumctl: <error>" as one harmless line and hands `exit` back.
[[nodiscard]] ExitStatus Fail(CommandContext& context, ExitStatus exit, std::string_view error);
[[nodiscard]] ExitStatus Fail(CommandContext& context, const AgentAnswer& answer);

/// Writes JSON over several lines.
void PrintJson(CommandContext& context, const nlohmann::ordered_json& json);

/// For an action that answers nothing but its status: `sentence` for people, {"status": 0} for programs.
[[nodiscard]] ExitStatus Done(CommandContext& context, std::string_view sentence);

/// Asks the agent for a model's definition; the answer is done only where `definition` was filled.
[[nodiscard]] AgentAnswer FetchModel(AgentConnection& agent, const std::string& model,
                                     ModelDefinition& definition);
