#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "client/ExitStatus.h"
#include "client/check/DefinitionFile.h"
#include "client/commands/CommandContext.h"
#include "client/connection/AgentCall.h"
#include "client/model/ModelDefinition.h"

/// What the commands have in common.

/// Writes "lumctl: <error>" as one harmless line, and hands `exit` back.
[[nodiscard]] ExitStatus Fail(CommandContext& context, ExitStatus exit, std::string_view error);
/// The same for what the agent answered, followed by the lines of its log that tell why.
[[nodiscard]] ExitStatus Fail(CommandContext& context, const AgentAnswer& answer);
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
/// Whether there is a model of that name, and whether it is enabled. The agent makes an alert of a question
/// about a model that it does not have, so the list is read first.
[[nodiscard]] ExitStatus FindModel(CommandContext& context, const std::string& model, bool& enabled);
[[nodiscard]] ExitStatus FindModel(CommandContext& context, const std::string& model);
/// The same with the model's definition.
[[nodiscard]] ExitStatus FetchModel(CommandContext& context, const std::string& model,
                                    ModelDefinition& definition);

/// Whether the user wants something gone for good. `what` says what, with its number, as a sentence without
/// its end; on a terminal the user is asked `question`, elsewhere --yes is needed. `refused` is said when the
/// answer is no.
[[nodiscard]] ExitStatus Confirm(CommandContext& context, std::string_view what, std::string_view question,
                                 std::string_view refused);
