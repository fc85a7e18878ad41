#include "client/events/EventCount.h"

#include <nlohmann/json.hpp>

#include "client/events/EventPage.h"
#include "client/model/Requests.h"
#include "contract/Actions.h"

namespace {

/// The event at a place in the order of the dates.
AgentAnswer FetchOne(AgentConnection& agent, const std::string& model, int64_t place, EventPage& page) {
    EventsRequestFields fields;
    fields.model = model;
    fields.skip = static_cast<uint32_t>(place);
    std::string error;
    AgentAnswer answer;
    if (!BeginAction(agent, actions::kGetEvents, EventsRequest(fields), error)) {
        answer.exit = ExitStatus::kNoAgent;
        answer.error = error;
        return answer;
    }
    answer = EndAction(agent);
    if (answer.IsDone() && !page.Parse(answer.body)) {
        return ReadActionAnswer(actions::kGetEvents, std::move(answer));
    }
    return answer;
}

}  // namespace

AgentAnswer CountEvents(AgentConnection& agent, const std::string& model, std::optional<int32_t> before,
                        int64_t& count) {
    EventPage page;
    AgentAnswer answer = FetchOne(agent, model, 0, page);
    int64_t low = 0;
    int64_t high = page.GetEventCount();
    while (answer.IsDone() && before && low < high) {
        const int64_t middle = low + (high - low) / 2;
        answer = FetchOne(agent, model, middle, page);
        if (page.GetRowCount() > 0 && page.GetDate(0) < *before) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    count = high;
    return answer;
}
