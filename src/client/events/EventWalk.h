#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "client/connection/AgentCall.h"
#include "client/events/EventPage.h"

enum class EventOrder : uint8_t { kOldestFirst, kNewestFirst };

/// Which events a walk passes, and in which order.
struct EventRange {
    std::string model;
    std::optional<int32_t> since;  ///< inclusive
    std::optional<int32_t> until;  ///< inclusive
    EventOrder order = EventOrder::kOldestFirst;
    /// Another column to sort by than the date; then `order` says upwards or downwards.
    std::optional<std::string> sort;
};

/// Passes the events of a model page by page, in memory that does not grow with their number. The agent's
/// action skips rows one by one and takes one bound of the date, so a walk by date asks for what comes from
/// the date of the last row on, without the rows of that date that it has seen: that costs the agent the page
/// alone, however far the walk has come, and events that arrive meanwhile shift nothing.
class EventWalk {
public:
    /// Where a walk by date stands: so many rows after the first of a date, or of the table.
    struct Position {
        std::optional<int32_t> date;
        uint32_t seen = 0;
    };

    /// `skip` rows of the range are passed over by the agent. With `ahead` the next page is asked for while
    /// the caller works on one.
    EventWalk(AgentConnection& agent, EventRange range, uint32_t skip, bool ahead);
    EventWalk(const EventWalk&) = delete;
    EventWalk& operator=(const EventWalk&) = delete;
    ~EventWalk();

    /// Puts the next page into `page`: its rows before GetEnd belong to the walk. False at the end and on
    /// failure, of which GetFailure tells.
    [[nodiscard]] bool Next(EventPage& page);
    [[nodiscard]] std::size_t GetEnd() const { return end_; }
    /// A walk by another column than the date also gives rows outside of the range.
    [[nodiscard]] bool IsInRange(int64_t date) const;

    [[nodiscard]] const AgentAnswer& GetFailure() const { return failure_; }
    /// Where the walk stands after the page that Next handed over last.
    [[nodiscard]] const Position& GetPosition() const { return position_; }
    /// Lets Next begin anew at a position: for rows that came since. Only for oldest first by date.
    void Resume(const Position& position);

private:
    bool Ask();
    void MoveTo(const EventPage& page, std::size_t answerBytes);
    [[nodiscard]] bool IsByDate() const { return !range_.sort.has_value(); }
    [[nodiscard]] bool IsPast(int64_t date) const;

    AgentConnection& agent_;
    const EventRange range_;
    const bool ahead_;
    Position position_;
    uint32_t pageRows_;
    uint32_t askedRows_ = 0;
    bool asked_ = false;  ///< an answer is on its way
    bool atEnd_ = false;
    std::size_t end_ = 0;
    AgentAnswer failure_;
};
