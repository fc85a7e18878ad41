#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "client/connection/AgentCall.h"

/// What is looked up in the agent's page /status, which holds its own members and those of its modules.

/// Asks for the page; an agent that has none is said so in a sentence that helps.
[[nodiscard]] AgentAnswer FetchStatus(AgentConnection& agent);

/// The member of that name, of the page itself or of what one of the modules adds to it.
[[nodiscard]] const nlohmann::ordered_json& StatusMember(const nlohmann::ordered_json& status,
                                                         std::string_view name);

/// Up to when the events of a model were uploaded, in seconds since 1970 UTC; nothing where the agent does
/// not say.
[[nodiscard]] std::optional<int32_t> FetchLastUpload(AgentConnection& agent, const std::string& model);

/// How many alerts the agent has held back so far; nothing where it does not say.
[[nodiscard]] std::optional<int64_t> FetchAlertsHeldBack(AgentConnection& agent);
