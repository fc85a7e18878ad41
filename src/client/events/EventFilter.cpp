#include "client/events/EventFilter.h"

#include <algorithm>
#include <cstdlib>

#include "client/model/Requests.h"

namespace {

bool IsEqual(const EventValue& value, const nlohmann::ordered_json& wanted) {
    switch (value.kind) {
        case EventValue::Kind::kText:
            return wanted.is_string() && wanted.get_ref<const std::string&>() == value.text;
        case EventValue::Kind::kInteger:
            return wanted.is_number() && wanted == value.number;
        case EventValue::Kind::kReal:
            return wanted.is_number() &&
                   wanted.get<double>() == std::strtod(std::string(value.text).c_str(), nullptr);
        case EventValue::Kind::kBool:
            return wanted.is_boolean() && wanted.get<bool>() == (value.number != 0);
        case EventValue::Kind::kNone:
            break;
    }
    return false;
}

}  // namespace

EventFilter::EventFilter(const ModelDefinition& model, const EventsQuery& query) {
    const nlohmann::ordered_json values = CreateEventParams(model, query.device, query.group, query.filters);
    for (const auto& [name, value] : values.items()) {
        wanted_.emplace_back(name, value);
    }
}

bool EventFilter::Takes(const EventPage& page, std::size_t row) const {
    return std::all_of(wanted_.begin(), wanted_.end(), [&](const auto& wanted) {
        return IsEqual(page.GetValue(wanted.first, row), wanted.second);
    });
}
