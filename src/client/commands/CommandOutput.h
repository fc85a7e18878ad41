#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "client/ClientError.h"
#include "client/ExitStatus.h"
#include "client/check/DefinitionFile.h"
#include "client/commands/CommandContext.h"
#include "client/connection/AgentCall.h"
#include "client/model/ModelDefinition.h"

/// What the commands have in common.

/// Writes "lumctl: <error>" as one harmless line, and hands `exit` back.
[[nodiscard]] ExitStatus Fail(CommandContext& context, ExitStatus exit, std::string_view error);
/// The same for what was thrown, with its details.
[[nodiscard]] ExitStatus Fail(CommandContext& context, const ClientError& error);
/// The lines of the agent's log that a call caused, one "lumctl: agent: ..." each.
void PrintMessages(CommandContext& context, const AgentAnswer& answer);

/// Writes JSON over several lines.
void PrintJson(CommandContext& context, const nlohmann::ordered_json& json);

/// The faults of a definition file as a list of objects.
[[nodiscard]] nlohmann::ordered_json FaultsToJson(const std::vector<DefinitionFault>& faults);

/// For an action that answers nothing but its status: `sentence` for people, {"status": 0} for programs.
[[nodiscard]] ExitStatus Done(CommandContext& context, std::string_view sentence);

/// Asks for the list of the models.
[[nodiscard]] AgentAnswer FetchModelList(AgentConnection& agent);
/// The names in that list, in its order.
[[nodiscard]] std::vector<std::string> NamesIn(const AgentAnswer& modelList);
/// Makes sure that there is a model of that name, and says whether it is enabled. The agent makes an alert of
/// a question about a model that it does not have, so the list is read first. Throws a ClientError where
/// there is none, as FetchModel does, which gives the model's definition.
// NOLINTNEXTLINE(modernize-use-nodiscard): often the model only has to be there.
bool FindModel(AgentConnection& agent, const std::string& model);
[[nodiscard]] ModelDefinition FetchModel(AgentConnection& agent, const std::string& model);

/// Throws a ClientError unless the user wants something gone for good. `what` says what, with its number, as
/// a sentence without its end; on a terminal the user is asked `question`, elsewhere --yes is needed.
/// `refused` is said when the answer is no.
void Confirm(CommandContext& context, const std::string& what, std::string_view question,
             const std::string& refused);
