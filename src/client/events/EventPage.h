#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// One value of an event as the agent's JSON spelled it.
struct EventValue {
    enum class Kind : uint8_t { kNone, kText, kInteger, kReal, kBool };

    Kind kind = Kind::kNone;
    int64_t number = 0;     ///< of an integer; 1 or 0 of a bool
    std::string_view text;  ///< of a text; of a real number as it was spelled. Lives as long as its page
};

/// A page of events as the agent answers them: columns of values, row by row in the agent's order. Keeps the
/// values of a page in a few large pieces of memory, so that millions of rows can pass through one object.
class EventPage {
public:
    /// Reads the whole answer to EventLogManagerGetEvents in place of what the page held. False, the page
    /// then empty, where it is not one of status 0.
    [[nodiscard]] bool Parse(std::string_view answer);

    [[nodiscard]] std::size_t GetRowCount() const { return rows_; }
    /// All events of the model, whatever the page holds.
    [[nodiscard]] int64_t GetEventCount() const { return eventCount_; }

    /// The column of that name; nothing where no row has a value of it.
    [[nodiscard]] std::optional<std::size_t> FindColumn(std::string_view name) const;
    [[nodiscard]] EventValue GetValue(std::size_t column, std::size_t row) const;
    /// The value in the column of that name; a value of kind kNone where there is none.
    [[nodiscard]] EventValue GetValue(std::string_view name, std::size_t row) const;
    /// The event's date in seconds since 1970 UTC.
    [[nodiscard]] int64_t GetDate(std::size_t row) const { return dates_[row]; }

    /// Adds a row of another page at the end.
    void AppendRow(const EventPage& from, std::size_t row);
    void Clear();

private:
    class Handler;
    class Scanner;

    /// A text is a part of `texts_`.
    struct Cell {
        EventValue::Kind kind = EventValue::Kind::kNone;
        uint32_t length = 0;
        int64_t number = 0;  ///< of a text its offset
    };
    struct Column {
        std::string name;
        std::vector<Cell> cells;
    };

    /// Reads the answer by a reader of any JSON; false, with a part of it read, where it is none of status 0.
    [[nodiscard]] bool Read(std::string_view answer);
    /// The same for the form in which the agent writes pages; false for any other.
    [[nodiscard]] bool Scan(std::string_view answer);

    std::size_t ColumnFor(std::string_view name);
    void Put(std::size_t column, EventValue value);

    std::vector<Column> columns_;
    std::vector<int64_t> dates_;
    std::string texts_;
    std::size_t rows_ = 0;
    int64_t eventCount_ = 0;
};
