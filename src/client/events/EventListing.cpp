#include "client/events/EventListing.h"

#include <chrono>
#include <limits>
#include <thread>

#include "contract/ContainerKeys.h"

namespace {

constexpr std::chrono::seconds kFollowInterval{1};

}  // namespace

std::optional<uint32_t> EventsQuery::GetLimit() const {
    if (all || (!pageSize && (since || until))) {
        return std::nullopt;
    }
    return pageSize.value_or(kDefaultPageSize);
}

EventRange EventListing::RangeOf() const {
    const bool byDate = !query_.sort || *query_.sort == keys::kEventDate;
    const bool newestFirst = query_.descending || IsNewestLast();
    return {query_.model, query_.since, query_.until,
            newestFirst ? EventOrder::kNewestFirst : EventOrder::kOldestFirst,
            byDate ? std::nullopt : query_.sort};
}

/// The newest are read first and shown last: of the others the reader would wait for the whole table.
bool EventListing::IsNewestLast() const {
    return !query_.sort && !query_.descending && query_.GetLimit().has_value();
}

void EventListing::Run() {
    const std::optional<uint32_t> limit = query_.GetLimit();
    const uint64_t skip = uint64_t{query_.page - 1} * limit.value_or(0);
    // The agent passes over rows for nothing where every row of the walk is wanted.
    const bool agentSkips = filter_.IsEmpty() && (!query_.sort || !(query_.since || query_.until)) &&
                            skip < std::numeric_limits<int32_t>::max();
    toSkip_ = agentSkips ? 0 : skip;
    EventWalk walk(agent_, RangeOf(), agentSkips ? static_cast<uint32_t>(skip) : 0, !limit);
    EventPage page;
    bool more = true;
    while (more && walk.Next(page)) {
        more = TakePage(walk, page);
    }
    eventCount_ = page.GetEventCount();  // an answer without rows tells it, too
    ShowKept();
    if (!walk.GetFailure().IsDone()) {
        writer_.Flush();
    }
    Required(walk.GetFailure());
    if (query_.follow) {
        Follow(walk);
    }
    writer_.End(taken_, eventCount_);
}

bool EventListing::TakePage(const EventWalk& walk, const EventPage& page) {
    const std::optional<uint32_t> limit = query_.GetLimit();
    eventCount_ = page.GetEventCount();
    writer_.BeginPage(page);
    NoteNewest(page);
    for (std::size_t row = 0; row < walk.GetEnd() && (!limit || taken_ < *limit); ++row) {
        if (!walk.IsInRange(page.GetDate(row)) || !filter_.Takes(page, row)) {
            continue;
        }
        if (toSkip_ > 0) {
            --toSkip_;
            continue;
        }
        Show(page, row);
        ++taken_;
    }
    read_ += walk.GetEnd();
    if (progress_) {
        progress_(read_, eventCount_);
    }
    if (!IsNewestLast()) {
        writer_.Flush();
    }
    // A follower has to know all rows of the newest date.
    const bool newestIsOpen = query_.follow && page.GetDate(page.GetRowCount() - 1) == newest_.date;
    return !limit || taken_ < *limit || newestIsOpen;
}

void EventListing::Show(const EventPage& page, std::size_t row) {
    if (IsNewestLast()) {
        kept_.AppendRow(page, row);
    } else {
        writer_.Write(row);
    }
}

void EventListing::ShowKept() {
    if (kept_.GetRowCount() == 0) {
        return;
    }
    writer_.BeginPage(kept_);
    for (std::size_t row = kept_.GetRowCount(); row > 0; --row) {
        writer_.Write(row - 1);
    }
}

void EventListing::NoteNewest(const EventPage& page) {
    if (!query_.follow || !IsNewestLast()) {
        return;
    }
    for (std::size_t row = 0; row < page.GetRowCount(); ++row) {
        const auto date = static_cast<int32_t>(page.GetDate(row));
        if (!newest_.date) {
            newest_.date = date;
        }
        if (date != *newest_.date) {
            return;
        }
        ++newest_.seen;
    }
}

void EventListing::Follow(const EventWalk& listed) {
    EventRange range = RangeOf();
    range.order = EventOrder::kOldestFirst;
    EventWalk walk(agent_, range, 0, false);
    walk.Resume(IsNewestLast() ? newest_ : listed.GetPosition());
    EventPage page;
    writer_.Flush();
    for (;;) {
        while (walk.Next(page)) {
            writer_.BeginPage(page);
            for (std::size_t row = 0; row < walk.GetEnd(); ++row) {
                if (filter_.Takes(page, row)) {
                    writer_.Write(row);
                }
            }
            writer_.Flush();
        }
        Required(walk.GetFailure());
        std::this_thread::sleep_for(kFollowInterval);
        walk.Resume(EventWalk::Position(walk.GetPosition()));
    }
}
