#include "client/events/EventWalk.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "client/model/Requests.h"
#include "contract/Actions.h"
#include "contract/ContainerKeys.h"

namespace {

/// The first page is there at once; the following ones cost the agent a count of the table each, so they are
/// as large as constant memory allows.
constexpr uint32_t kFirstPageRows = 100;
constexpr uint32_t kMaxPageRows = 12000;
/// Pages become smaller where rows are long.
constexpr std::size_t kPageBytes = 1000000;

}  // namespace

EventWalk::EventWalk(AgentConnection& agent, EventRange range, uint32_t skip, bool ahead)
    : agent_(agent), range_(std::move(range)), ahead_(ahead), pageRows_(kFirstPageRows) {
    const bool oldestFirst = range_.order == EventOrder::kOldestFirst;
    position_.seen = skip;
    if (IsByDate()) {
        position_.date = oldestFirst ? range_.since : range_.until;
    }
}

EventWalk::~EventWalk() {
    if (asked_) {
        static_cast<void>(EndAction(agent_));  // nobody waits for it, and the connection is free again
    }
}

bool EventWalk::Next(EventPage& page) {
    if (atEnd_ || !failure_.IsDone() || (!asked_ && !Ask())) {
        return false;
    }
    asked_ = false;
    AgentAnswer answer = EndAction(agent_);
    if (!answer.IsDone() || !page.Parse(answer.body)) {
        failure_ = ReadActionAnswer(actions::kGetEvents, std::move(answer));
        if (failure_.IsDone()) {
            failure_.exit = ExitStatus::kFailed;
            failure_.error = "the agent's answer holds no events";
        }
        return false;
    }
    MoveTo(page, answer.body.size());
    if (ahead_ && !atEnd_) {
        static_cast<void>(Ask());  // the page that came is whole; the next call tells of the failure
    }
    return end_ > 0;
}

bool EventWalk::IsInRange(int64_t date) const {
    return (!range_.since || date >= *range_.since) && (!range_.until || date <= *range_.until);
}

void EventWalk::Resume(const Position& position) {
    position_ = position;
    atEnd_ = false;
    pageRows_ = kFirstPageRows;
}

bool EventWalk::Ask() {
    EventsRequestFields fields;
    fields.model = range_.model;
    fields.rows = pageRows_;
    fields.skip = position_.seen;
    fields.sort = range_.sort;
    fields.descending = range_.order == EventOrder::kNewestFirst;
    if (IsByDate()) {
        (fields.descending ? fields.until : fields.since) = position_.date;
    } else if (range_.since) {
        fields.since = range_.since;
    } else {
        fields.until = range_.until;
    }
    askedRows_ = pageRows_;
    asked_ = BeginAction(agent_, actions::kGetEvents, EventsRequest(fields), failure_.error);
    failure_.exit = asked_ ? ExitStatus::kDone : ExitStatus::kNoAgent;
    return asked_;
}

bool EventWalk::IsPast(int64_t date) const {
    return range_.order == EventOrder::kOldestFirst ? range_.until && date > *range_.until
                                                    : range_.since && date < *range_.since;
}

void EventWalk::MoveTo(const EventPage& page, std::size_t answerBytes) {
    const std::size_t rows = page.GetRowCount();
    end_ = rows;
    atEnd_ = rows < askedRows_;
    if (rows == 0) {
        return;
    }
    const std::size_t rowsThatFit = std::max<std::size_t>(kPageBytes / (answerBytes / rows + 1), 1);
    pageRows_ = static_cast<uint32_t>(std::min<std::size_t>({pageRows_ * 4UL, kMaxPageRows, rowsThatFit}));
    if (!IsByDate()) {
        position_.seen += static_cast<uint32_t>(rows);
        return;
    }
    const int64_t last = page.GetDate(rows - 1);
    std::size_t same = 1;
    while (same < rows && page.GetDate(rows - 1 - same) == last) {
        ++same;
    }
    if (same == rows) {
        // Rows of this date may have been skipped before the page: the old position still counts from the
        // right place.
        position_.seen += static_cast<uint32_t>(rows);
    } else {
        position_ = {static_cast<int32_t>(last), static_cast<uint32_t>(same)};
    }
    while (end_ > 0 && IsPast(page.GetDate(end_ - 1))) {
        --end_;
        atEnd_ = true;
    }
}
