#include "client/events/RowWriter.h"

#include <ostream>

#include "client/text/FieldText.h"
#include "client/text/TextTable.h"
#include "client/text/TimeText.h"
#include "contract/ContainerKeys.h"

namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 16U;

/// Adds nothing where there is no value.
void AppendJson(std::string& out, const EventValue& value) {
    switch (value.kind) {
        case EventValue::Kind::kText:
            AppendJsonText(out, value.text);
            break;
        case EventValue::Kind::kInteger:
            AppendNumber(out, value.number);
            break;
        case EventValue::Kind::kReal:
            out += value.text;
            break;
        case EventValue::Kind::kBool:
            out += value.number != 0 ? "true" : "false";
            break;
        case EventValue::Kind::kNone:
            break;
    }
}

class TableWriter : public RowWriter {
public:
    TableWriter(const ModelDefinition& model, std::ostream& out, bool bold) : RowWriter(model, out) {
        table_.SetBoldTitles(bold);
        for (const Column& column : GetColumns()) {
            const bool isNumber = column.type == kTypeInteger || column.type == kTypeDouble;
            table_.AddColumn(TitleOf(column.name),
                             isNumber ? TextTable::Align::kRight : TextTable::Align::kLeft);
        }
    }

    void Write(std::size_t row) override {
        std::vector<std::string> cells;
        cells.reserve(GetColumns().size());
        for (const Column& column : GetColumns()) {
            cells.push_back(CellOf(GetValue(column, row), column.type));
        }
        table_.AddRow(cells);
    }

    void Flush() override {
        Buffer() += table_.TakeRendered();
        RowWriter::Flush();
    }

    void End(uint64_t written, int64_t eventCount) override {
        Buffer() += table_.TakeRendered();
        Buffer() += std::to_string(written) + (written == 1 ? " event shown" : " events shown") +
                    "; EventCount " + std::to_string(eventCount) +
                    " (all events of the model, whatever the filters)\n";
        RowWriter::Flush();
    }

private:
    static std::string_view TitleOf(std::string_view name) {
        return name == keys::kEventDate       ? "Date"
               : name == keys::kEventDeviceId ? "Device"
               : name == keys::kEventGroupId  ? "Group"
                                              : name;
    }

    TextTable table_;
};

/// A row an object; as a list, with the count before it, for JSON.
class JsonWriter : public RowWriter {
public:
    JsonWriter(const ModelDefinition& model, std::ostream& out, bool isList)
        : RowWriter(model, out), isList_(isList) {}

    void Write(std::size_t row) override {
        std::string& out = Buffer();
        if (isList_) {
            out += rows_ == 0 ? Beginning(GetEventCount()) + "\n    " : ",\n    ";
        }
        ++rows_;
        char separator = '{';
        for (const Column& column : GetColumns()) {
            const EventValue value = GetValue(column, row);
            if (value.kind != EventValue::Kind::kNone) {
                out += separator;
                AppendJsonText(out, column.name);
                out += ':';
                AppendJson(out, value);
                separator = ',';
            }
        }
        out += separator == '{' ? "{}" : "}";
        out += isList_ ? "" : "\n";
    }

    void End(uint64_t /*written*/, int64_t eventCount) override {
        if (isList_) {
            Buffer() += rows_ == 0 ? Beginning(eventCount) : "\n  ";
            Buffer() += "]\n}\n";
        }
        Flush();
    }

private:
    static std::string Beginning(int64_t eventCount) {
        return "{\n  \"EventCount\": " + std::to_string(eventCount) + ",\n  \"Events\": [";
    }

    const bool isList_;
    uint64_t rows_ = 0;
};

class CsvWriter : public RowWriter {
public:
    CsvWriter(const ModelDefinition& model, std::ostream& out) : RowWriter(model, out) {
        for (const Column& column : GetColumns()) {
            Buffer() += &column == &GetColumns().front() ? "" : ",";
            AppendCsvText(Buffer(), column.name);
        }
        Buffer() += '\n';
    }

    void Write(std::size_t row) override {
        std::string& out = Buffer();
        for (const Column& column : GetColumns()) {
            const EventValue value = GetValue(column, row);
            if (value.kind == EventValue::Kind::kText) {
                AppendCsvText(out, value.text);
            } else {
                AppendJson(out, value);
            }
            out += ',';
        }
        out.back() = '\n';
    }
};

}  // namespace

std::string CellOf(const EventValue& value, std::string_view type) {
    switch (value.kind) {
        case EventValue::Kind::kText:
        case EventValue::Kind::kReal:
            return std::string(value.text);
        case EventValue::Kind::kInteger:
            return type == kTypeTimestamp ? FormatLocalTime(value.number) : std::to_string(value.number);
        case EventValue::Kind::kBool:
            return value.number != 0 ? "true" : "false";
        case EventValue::Kind::kNone:
            break;
    }
    return {};
}

const std::array<std::string_view, kFixedColumnCount>& FixedColumns() {
    static constexpr std::array<std::string_view, kFixedColumnCount> kNames{
        keys::kEventDate, keys::kEventDeviceId, keys::kEventGroupId};
    return kNames;
}

RowWriter::RowWriter(const ModelDefinition& model, std::ostream& out) : out_(out) {
    for (const std::string_view name : FixedColumns()) {
        const std::string_view type = name == keys::kEventDate ? kTypeTimestamp : kTypeInteger;
        columns_.push_back({std::string(name), std::string(type), {}});
    }
    for (const ModelParameter& parameter : model.parameters) {
        columns_.push_back({parameter.name, parameter.type, {}});
    }
}

void RowWriter::BeginPage(const EventPage& page) {
    page_ = &page;
    for (Column& column : columns_) {
        column.position = page.FindColumn(column.name);
    }
}

void RowWriter::Flush() {
    out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    out_.flush();
    buffer_.clear();
}

void RowWriter::End(uint64_t /*written*/, int64_t /*eventCount*/) {
    Flush();
}

std::string& RowWriter::Buffer() {
    if (buffer_.size() > kBufferBytes) {
        out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
        buffer_.clear();
    }
    return buffer_;
}

std::unique_ptr<RowWriter> MakeRowWriter(OutputFormat format, const ModelDefinition& model, std::ostream& out,
                                         bool bold) {
    switch (format) {
        case OutputFormat::kJson:
        case OutputFormat::kJsonLines:
            return std::make_unique<JsonWriter>(model, out, format == OutputFormat::kJson);
        case OutputFormat::kCsv:
            return std::make_unique<CsvWriter>(model, out);
        case OutputFormat::kTable:
            break;
    }
    return std::make_unique<TableWriter>(model, out, bold);
}
