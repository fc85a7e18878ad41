#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/model/ModelDefinition.h"

/// The argument containers of the agent's actions as JSON. Nothing here reaches the agent.

/// What one call of the action that reads events is to answer. A column sorts by itself, or by the date.
struct EventsRequestFields {
    std::string model;
    std::optional<int32_t> since;
    std::optional<int32_t> until;  ///< not together with `since`: the action fails then
    uint32_t rows = 1;
    uint32_t skip = 0;  ///< so many rows of the order are passed over
    std::optional<std::string> sort;
    bool descending = false;
};

/// For the actions that take a model's name and no more.
[[nodiscard]] nlohmann::ordered_json ModelRequest(const std::string& model);
[[nodiscard]] nlohmann::ordered_json DeleteModelsRequest(const std::vector<std::string>& models);
[[nodiscard]] nlohmann::ordered_json EventsRequest(const EventsRequestFields& fields);
[[nodiscard]] nlohmann::ordered_json PurgeRequest(const std::string& model, std::optional<int32_t> before);
[[nodiscard]] nlohmann::ordered_json AlertRequest(const std::string& text,
                                                  const std::optional<std::string>& status);
/// `eventParams` as CreateEventParams or ImportEventParams make them.
[[nodiscard]] nlohmann::ordered_json CreateRequest(const std::string& model,
                                                   nlohmann::ordered_json eventParams);

/// The parameters of one event from assignments "PARAM=VALUE", typed by the model. Throws a ClientError that
/// names the parameter for a text that is not an assignment, a parameter that the model does not have or that
/// is given twice, and a value that does not fit its type.
[[nodiscard]] nlohmann::ordered_json CreateEventParams(const ModelDefinition& model,
                                                       std::optional<int32_t> device,
                                                       std::optional<int32_t> group,
                                                       const std::vector<std::string>& assignments);

/// The same from a line of JSON: one object whose members are parameters of the model, "EventDeviceId" or
/// "EventGroupId". A member that is null is left out, and so is "EventDate", which an export writes and the
/// agent gives to each event itself.
[[nodiscard]] nlohmann::ordered_json ImportEventParams(const ModelDefinition& model, std::string_view line);

/// The settings from assignments "KEY=VALUE". Throws a ClientError for an unknown setting and a bad value.
[[nodiscard]] nlohmann::ordered_json SettingsRequest(const std::vector<std::string>& assignments);
