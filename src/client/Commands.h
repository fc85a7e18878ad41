#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/CommandContext.h"
#include "client/ExitStatus.h"
#include "client/Requests.h"

/// The commands of lumctl, one routine each. Every one writes its answer to the console's output, a table or
/// JSON, and what went wrong as lines that begin with "lumctl: " to its error stream.

/// Prints the socket's answer as it came, whatever the action's status. Without `arguments` none are sent;
/// "-" takes them from the console's input.
[[nodiscard]] ExitStatus InvokeAction(CommandContext& context, const std::string& action,
                                      const std::optional<std::string>& arguments);
[[nodiscard]] ExitStatus ListActions(CommandContext& context);
[[nodiscard]] ExitStatus ListModules(CommandContext& context);

[[nodiscard]] ExitStatus ListModels(CommandContext& context);
[[nodiscard]] ExitStatus ShowModel(CommandContext& context, const std::string& model);
[[nodiscard]] ExitStatus EnableModel(CommandContext& context, const std::string& model);
[[nodiscard]] ExitStatus DisableModel(CommandContext& context, const std::string& model);
/// Asks first where the model has events and `yes` is not set. The action itself does not say whether a model
/// is gone, so the listing is read before and after.
[[nodiscard]] ExitStatus DeleteModel(CommandContext& context, const std::string& model, bool yes);
[[nodiscard]] ExitStatus ReloadModels(CommandContext& context);

struct CreateOptions {
    std::string model;
    std::optional<int32_t> device;
    std::optional<int32_t> group;
    std::vector<std::string> assignments;
};
[[nodiscard]] ExitStatus CreateEvent(CommandContext& context, const CreateOptions& options);
[[nodiscard]] ExitStatus ListEvents(CommandContext& context, const EventsQuery& query);
[[nodiscard]] ExitStatus UploadEvents(CommandContext& context, const std::string& model);
[[nodiscard]] ExitStatus PurgeEvents(CommandContext& context, const std::string& model,
                                     std::optional<int32_t> before);

/// Changes the settings that are given, then shows all as the agent has them. kFailed where it did not keep
/// one.
[[nodiscard]] ExitStatus ShowSettings(CommandContext& context, const std::vector<std::string>& assignments);
[[nodiscard]] ExitStatus CreateAlert(CommandContext& context, const std::string& text,
                                     const std::optional<std::string>& status);

/// Prints a container file as JSON. Needs no agent.
[[nodiscard]] ExitStatus ShowFile(CommandContext& context, const std::string& path);
