#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "client/connection/AgentConnection.h"
#include "client/events/EventFilter.h"
#include "client/events/EventWalk.h"
#include "client/events/EventsQuery.h"
#include "client/events/RowWriter.h"

/// Shows the events of one query. Keeps no more events in memory than a page of the agent, and where the
/// newest are to come last those that are shown.
class EventListing {
public:
    EventListing(AgentConnection& agent, EventsQuery query, EventFilter filter, RowWriter& writer)
        : agent_(agent), query_(std::move(query)), filter_(std::move(filter)), writer_(writer) {}

    /// Told after each page how many events were read, of how many.
    void SetProgress(std::function<void(uint64_t, int64_t)> progress) { progress_ = std::move(progress); }

    /// Throws a ClientError where the agent does not answer; with `follow` it ends only then.
    void Run();

    /// How many events were shown.
    [[nodiscard]] uint64_t GetWritten() const { return taken_; }

private:
    [[nodiscard]] EventRange RangeOf() const;
    [[nodiscard]] bool IsNewestLast() const;
    /// Takes the rows of one page; false when the last one that is wanted was among them.
    bool TakePage(const EventWalk& walk, const EventPage& page);
    void Show(const EventPage& page, std::size_t row);
    void ShowKept();
    /// Counts the rows of the newest date, which is where a follower begins.
    void NoteNewest(const EventPage& page);
    [[noreturn]] void Follow(const EventWalk& listed);

    AgentConnection& agent_;
    const EventsQuery query_;
    const EventFilter filter_;
    RowWriter& writer_;
    std::function<void(uint64_t, int64_t)> progress_;
    EventPage kept_;
    EventWalk::Position newest_;
    uint64_t toSkip_ = 0;
    uint64_t taken_ = 0;
    uint64_t read_ = 0;
    int64_t eventCount_ = 0;
};
