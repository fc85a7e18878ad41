#include "client/events/EventCount.h"

#include <nlohmann/json.hpp>

#include "client/events/EventPage.h"
#include "client/model/Requests.h"
#include "contract/Actions.h"

namespace {

/// The event at a place in the order of the dates.
EventPage FetchOne(AgentConnection& agent, const std::string& model, int64_t place) {
    EventsRequestFields fields;
    fields.model = model;
    fields.skip = static_cast<uint32_t>(place);
    AgentAnswer answer = Required(CallActionUnread(agent, actions::kGetEvents, EventsRequest(fields)));
    EventPage page;
    if (!page.Parse(answer.body)) {
        Required(ReadActionAnswer(actions::kGetEvents, std::move(answer)));
    }
    return page;
}

}  // namespace

int64_t CountEvents(AgentConnection& agent, const std::string& model, std::optional<int32_t> before) {
    int64_t low = 0;
    int64_t high = FetchOne(agent, model, 0).GetEventCount();
    while (before && low < high) {
        const int64_t middle = low + (high - low) / 2;
        const EventPage page = FetchOne(agent, model, middle);
        if (page.GetRowCount() > 0 && page.GetDate(0) < *before) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return high;
}
