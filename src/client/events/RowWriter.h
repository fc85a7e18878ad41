#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/events/EventPage.h"
#include "client/model/ModelDefinition.h"
#include "client/text/OutputFormat.h"

/// What a table shows for a value of a parameter type: a timestamp as local time.
[[nodiscard]] std::string CellOf(const EventValue& value, std::string_view type);

/// The columns that every event has, before its parameters.
inline constexpr std::size_t kFixedColumnCount = 3;
[[nodiscard]] const std::array<std::string_view, kFixedColumnCount>& FixedColumns();

/// Writes events to a stream as they come. What was written is on its way to the reader after each Flush.
class RowWriter {
public:
    RowWriter(const ModelDefinition& model, std::ostream& out);
    RowWriter(const RowWriter&) = delete;
    RowWriter& operator=(const RowWriter&) = delete;
    virtual ~RowWriter() = default;

    /// The rows that follow are of this page, as it is now.
    void BeginPage(const EventPage& page);
    virtual void Write(std::size_t row) = 0;
    virtual void Flush();
    /// After the last row: so many were written, of all that the model has.
    virtual void End(uint64_t written, int64_t eventCount);

protected:
    struct Column {
        std::string name;
        std::string type;
        std::optional<std::size_t> position;  ///< in the page
    };

    [[nodiscard]] const std::vector<Column>& GetColumns() const { return columns_; }
    [[nodiscard]] EventValue GetValue(const Column& column, std::size_t row) const {
        return column.position ? page_->GetValue(*column.position, row) : EventValue{};
    }
    [[nodiscard]] int64_t GetEventCount() const { return page_->GetEventCount(); }
    /// Text for the stream, which gets it in large pieces.
    std::string& Buffer();

private:
    std::vector<Column> columns_;
    std::ostream& out_;
    std::string buffer_;
    const EventPage* page_ = nullptr;
};

/// A writer of the form; for tables, `bold` titles are for a terminal.
[[nodiscard]] std::unique_ptr<RowWriter> MakeRowWriter(OutputFormat format, const ModelDefinition& model,
                                                       std::ostream& out, bool bold);
