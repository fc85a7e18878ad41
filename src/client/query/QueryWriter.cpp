#include "client/query/QueryWriter.h"

#include <ostream>
#include <vector>

#include "client/text/FieldText.h"
#include "client/text/Quantity.h"

namespace {

/// So many rows of a table decide on its widths, and then are shown.
constexpr uint64_t kTableRows = 256;

}  // namespace

QueryWriter::QueryWriter(OutputFormat format, const DBReader& reader, std::ostream& out, bool bold)
    : format_(format), reader_(reader), out_(out) {
    table_.SetBoldTitles(bold);
    std::string titles;
    for (uint32_t i = 0; i < reader_.GetColumnCount(); ++i) {
        table_.AddColumn(reader_.GetColumnName(i));
        titles += i == 0 ? "" : ",";
        AppendCsvText(titles, reader_.GetColumnName(i));
    }
    if (format_ == OutputFormat::kCsv) {
        out_ << titles << '\n';
    }
}

void QueryWriter::WriteRow() {
    switch (format_) {
        case OutputFormat::kTable:
            WriteTableRow();
            break;
        case OutputFormat::kCsv:
            WriteCsvRow();
            break;
        case OutputFormat::kJson:
        case OutputFormat::kJsonLines:
            WriteJsonRow();
            break;
    }
    ++rows_;
}

void QueryWriter::End() {
    if (format_ == OutputFormat::kTable) {
        out_ << table_.TakeRendered() << CountText(rows_, "row") << '\n';
    } else if (format_ == OutputFormat::kJson) {
        out_ << (rows_ == 0 ? "[]\n" : "\n]\n");
    }
    out_.flush();
}

void QueryWriter::AppendValue(std::string& out, uint32_t column) const {
    switch (reader_.GetKind(column)) {
        case DBReader::Kind::kNull:
            out += "null";
            break;
        case DBReader::Kind::kInteger:
        case DBReader::Kind::kReal:
            out += reader_.GetText(column);
            break;
        case DBReader::Kind::kText:
        case DBReader::Kind::kBlob:
            AppendJsonText(out, reader_.GetText(column));
            break;
    }
}

void QueryWriter::WriteTableRow() {
    std::vector<std::string> cells;
    for (uint32_t i = 0; i < reader_.GetColumnCount(); ++i) {
        cells.emplace_back(reader_.GetText(i));
    }
    table_.AddRow(cells);
    if (rows_ % kTableRows == kTableRows - 1) {
        out_ << table_.TakeRendered();
    }
}

void QueryWriter::WriteJsonRow() {
    std::string line = format_ == OutputFormat::kJson ? (rows_ == 0 ? "[\n  " : ",\n  ") : "";
    for (uint32_t i = 0; i < reader_.GetColumnCount(); ++i) {
        line += i == 0 ? '{' : ',';
        AppendJsonText(line, reader_.GetColumnName(i));
        line += ':';
        AppendValue(line, i);
    }
    line += format_ == OutputFormat::kJson ? "}" : "}\n";
    out_ << line;
}

void QueryWriter::WriteCsvRow() {
    std::string line;
    for (uint32_t i = 0; i < reader_.GetColumnCount(); ++i) {
        line += i == 0 ? "" : ",";
        AppendCsvText(line, reader_.GetText(i));
    }
    out_ << line << '\n';
}
