#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/ModelDefinition.h"

/// The argument containers of the agent's actions as JSON. Nothing here reaches the agent.

/// What `events` asks for.
struct EventsQuery {
    std::string model;
    std::optional<int32_t> since;
    std::optional<int32_t> until;
    std::optional<int32_t> pageSize;
    std::optional<int32_t> page;
    std::optional<std::string> sort;
    bool descending = false;
};

/// For the actions that take a model's name and no more.
[[nodiscard]] nlohmann::ordered_json ModelRequest(const std::string& model);
[[nodiscard]] nlohmann::ordered_json DeleteModelsRequest(const std::vector<std::string>& models);
/// A descending order without a column is one by date.
[[nodiscard]] nlohmann::ordered_json EventsRequest(const EventsQuery& query);
[[nodiscard]] nlohmann::ordered_json PurgeRequest(const std::string& model, std::optional<int32_t> before);
[[nodiscard]] nlohmann::ordered_json AlertRequest(const std::string& text,
                                                  const std::optional<std::string>& status);
/// `eventParams` as CreateEventParams or ImportEventParams make them.
[[nodiscard]] nlohmann::ordered_json CreateRequest(const std::string& model,
                                                   nlohmann::ordered_json eventParams);

/// Splits "NAME=VALUE" at the first equals sign. False where there is none or no name before it.
[[nodiscard]] bool SplitAssignment(std::string_view text, std::pair<std::string, std::string>& assignment);

/// The parameters of one event from assignments, typed by the model. False, with a sentence that names the
/// parameter in `error`, for a text that is no assignment, a parameter that the model does not have or that
/// is given twice, and a value that does not fit its type.
[[nodiscard]] bool CreateEventParams(const ModelDefinition& model, std::optional<int32_t> device,
                                     std::optional<int32_t> group,
                                     const std::vector<std::string>& assignments,
                                     nlohmann::ordered_json& eventParams, std::string& error);

/// The same from a line of JSON: one object whose members are parameters of the model, "EventDeviceId" or
/// "EventGroupId". A member that is null is left out.
[[nodiscard]] bool ImportEventParams(const ModelDefinition& model, std::string_view line,
                                     nlohmann::ordered_json& eventParams, std::string& error);

/// The settings from assignments. False, with a sentence in `error`, for an unknown setting or a bad value.
[[nodiscard]] bool SettingsRequest(const std::vector<std::string>& assignments,
                                   nlohmann::ordered_json& request, std::string& error);
