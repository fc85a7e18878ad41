#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/events/EventPage.h"
#include "client/model/ModelDefinition.h"

/// Which events of those that the agent answers are wanted: the device, the group and the values of
/// parameters must all be as given.
class EventFilter {
public:
    /// False, with a sentence in `error`, for a text that is not PARAM=VALUE, a parameter that the model does
    /// not have and a value that does not fit its type.
    [[nodiscard]] bool Set(const ModelDefinition& model, std::optional<int32_t> device,
                           std::optional<int32_t> group, const std::vector<std::string>& assignments,
                           std::string& error);

    [[nodiscard]] bool IsEmpty() const { return wanted_.empty(); }
    [[nodiscard]] bool Takes(const EventPage& page, std::size_t row) const;

private:
    std::vector<std::pair<std::string, nlohmann::ordered_json>> wanted_;
};
