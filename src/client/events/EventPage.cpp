#include "client/events/EventPage.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "contract/ContainerKeys.h"
#include "contract/Statuses.h"

/// Takes the answer's values as they are read, without a tree of the whole answer: its columns stand in
/// {"status": 0, "container": {"Result": {"EventCount": n, NAME: [...], ...}}}.
class EventPage::Handler {
public:
    explicit Handler(EventPage& page) : page_(page) {}

    [[nodiscard]] bool IsDone() const { return status_ == kActionDone && hasResult_; }

    // NOLINTBEGIN(readability-identifier-naming): the JSON library calls these by their names.
    bool null() { return Take({}); }
    bool boolean(bool value) { return Take({EventValue::Kind::kBool, value ? 1 : 0, {}}); }
    bool number_integer(int64_t value) { return Take({EventValue::Kind::kInteger, value, {}}); }
    bool number_unsigned(uint64_t value) { return number_integer(static_cast<int64_t>(value)); }
    bool number_float(double /*value*/, const std::string& spelled) {
        return Take({EventValue::Kind::kReal, 0, spelled});
    }
    bool string(const std::string& text) { return Take({EventValue::Kind::kText, 0, text}); }
    static bool binary(std::vector<uint8_t>& /*bytes*/) { return false; }
    bool start_object(std::size_t /*members*/) {
        ++depth_;
        inResult_ = inResult_ || (depth_ == kColumnDepth && name_ == keys::kResult);
        hasResult_ = hasResult_ || inResult_;
        return true;
    }
    bool key(const std::string& name) {
        name_ = name;
        return true;
    }
    bool end_object() {
        inResult_ = inResult_ && depth_ != kColumnDepth;
        --depth_;
        return true;
    }
    bool start_array(std::size_t /*values*/) {
        if (inResult_ && depth_ == kColumnDepth) {
            column_ = page_.ColumnFor(name_);
        }
        return true;
    }
    bool end_array() {
        column_.reset();
        return true;
    }
    static bool parse_error(std::size_t /*at*/, const std::string& /*token*/,
                            const std::exception& /*error*/) {
        return false;
    }
    // NOLINTEND(readability-identifier-naming)

private:
    static constexpr int kColumnDepth = 3;

    bool Take(EventValue value) {
        if (column_) {
            page_.Put(*column_, value);
        } else if (inResult_ && name_ == keys::kEventCount) {
            page_.eventCount_ = value.number;
        } else if (depth_ == 1 && name_ == "status") {
            status_ = value.number;
        }
        return true;
    }

    EventPage& page_;
    int depth_ = 0;
    int64_t status_ = -1;
    bool inResult_ = false;
    bool hasResult_ = false;
    std::string name_;
    std::optional<std::size_t> column_;
};

bool EventPage::Parse(std::string_view answer) {
    Clear();
    if (!Scan(answer)) {
        Clear();
        if (!Read(answer)) {
            Clear();
            return false;
        }
    }
    const std::optional<std::size_t> dates = FindColumn(keys::kEventDate);
    for (const Column& column : columns_) {
        rows_ = std::max(rows_, column.cells.size());
    }
    dates_.resize(rows_);
    for (std::size_t row = 0; dates && row < rows_; ++row) {
        dates_[row] = GetValue(*dates, row).number;
    }
    return true;
}

bool EventPage::Read(std::string_view answer) {
    Handler handler(*this);
    return nlohmann::json::sax_parse(answer, &handler) && handler.IsDone();
}

std::optional<std::size_t> EventPage::FindColumn(std::string_view name) const {
    const auto found = std::find_if(columns_.begin(), columns_.end(), [&](const Column& column) {
        return column.name == name && !column.cells.empty();
    });
    return found == columns_.end() ? std::nullopt : std::optional<std::size_t>(found - columns_.begin());
}

EventValue EventPage::GetValue(std::size_t column, std::size_t row) const {
    const std::vector<Cell>& cells = columns_[column].cells;
    if (row >= cells.size()) {
        return {};
    }
    const Cell& cell = cells[row];
    if (cell.kind == EventValue::Kind::kText || cell.kind == EventValue::Kind::kReal) {
        const auto offset = static_cast<std::size_t>(cell.number);
        return {cell.kind, 0, std::string_view(texts_).substr(offset, cell.length)};
    }
    return {cell.kind, cell.number, {}};
}

EventValue EventPage::GetValue(std::string_view name, std::size_t row) const {
    const std::optional<std::size_t> column = FindColumn(name);
    return column ? GetValue(*column, row) : EventValue{};
}

void EventPage::AppendRow(const EventPage& from, std::size_t row) {
    for (std::size_t i = 0; i < from.columns_.size(); ++i) {
        const std::size_t column = ColumnFor(from.columns_[i].name);
        columns_[column].cells.resize(rows_);
        Put(column, from.GetValue(i, row));
    }
    dates_.push_back(from.GetDate(row));
    eventCount_ = from.eventCount_;
    ++rows_;
}

void EventPage::Clear() {
    for (Column& column : columns_) {
        column.cells.clear();
    }
    dates_.clear();
    texts_.clear();
    rows_ = 0;
    eventCount_ = 0;
}

std::size_t EventPage::ColumnFor(std::string_view name) {
    const auto found = std::find_if(columns_.begin(), columns_.end(),
                                    [&](const Column& column) { return column.name == name; });
    if (found != columns_.end()) {
        return static_cast<std::size_t>(found - columns_.begin());
    }
    columns_.push_back({std::string(name), {}});
    return columns_.size() - 1;
}

void EventPage::Put(std::size_t column, EventValue value) {
    Cell cell{value.kind, static_cast<uint32_t>(value.text.size()), value.number};
    if (value.kind == EventValue::Kind::kText || value.kind == EventValue::Kind::kReal) {
        cell.number = static_cast<int64_t>(texts_.size());
        texts_ += value.text;
    }
    columns_[column].cells.push_back(cell);
}
