#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "client/events/EventPage.h"
#include "client/events/EventsQuery.h"
#include "client/model/ModelDefinition.h"

/// Which events of those that the agent answers are wanted: the device, the group and the values of
/// parameters must all be as given.
class EventFilter {
public:
    /// Throws a ClientError for a text that is not PARAM=VALUE, a parameter that the model does not have and
    /// a value that does not fit its type.
    EventFilter(const ModelDefinition& model, const EventsQuery& query);

    [[nodiscard]] bool IsEmpty() const { return wanted_.empty(); }
    [[nodiscard]] bool Takes(const EventPage& page, std::size_t row) const;

private:
    std::vector<std::pair<std::string, nlohmann::ordered_json>> wanted_;
};
