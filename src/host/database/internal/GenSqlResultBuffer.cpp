#include "host/database/internal/GenSqlResultBuffer.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <sqlite3.h>

namespace {

static_assert(std::endian::native == std::endian::little, "cells are written lowest byte first");

// The first byte of a cell. 1 to 8 is a whole number of so many bytes, kShortText + n a text of n bytes.
constexpr uint8_t kNull = 0;
constexpr uint8_t kReal = 9;
constexpr uint8_t kLongText = 10;  // its length is in the four bytes that follow
constexpr uint8_t kShortText = 11;
constexpr uint32_t kMaxShortText = 255 - kShortText;

/// A result of few rows takes little; the blocks of a large one soon have their full size.
constexpr std::size_t kFirstBlockBytes = 1024;
constexpr std::size_t kMaxBlockBytes = 65536;
/// Numbers are read and written eight bytes at a time, so the last row of a block needs some room after it.
constexpr std::size_t kSlack = 8;

bool IsWhole(uint8_t header) {
    return header >= 1 && header <= 8;
}

uint8_t BytesOf(int64_t number) {
    const auto magnitude = static_cast<uint64_t>(number < 0 ? ~number : number);
    return static_cast<uint8_t>(std::bit_width(magnitude) / 8 + 1);
}

template <class T>
T Load(const char* at) {
    T value;
    std::memcpy(&value, at, sizeof(value));
    return value;
}

int64_t WholeNumber(const char* cell) {
    const int unused = 64 - 8 * static_cast<uint8_t>(*cell);
    return static_cast<int64_t>(Load<uint64_t>(cell + 1) << unused) >> unused;
}

std::size_t CellBytes(const char* cell) {
    const auto header = static_cast<uint8_t>(*cell);
    if (header >= kShortText) {
        return 1 + static_cast<std::size_t>(header - kShortText);
    }
    if (header == kLongText) {
        return 5 + static_cast<std::size_t>(Load<uint32_t>(cell + 1));
    }
    return 1 + static_cast<std::size_t>(header == kReal ? 8 : header);
}

std::string_view Text(const char* cell) {
    const auto header = static_cast<uint8_t>(*cell);
    return header == kLongText ? std::string_view(cell + 5, Load<uint32_t>(cell + 1))
                               : std::string_view(cell + 1, static_cast<std::size_t>(header - kShortText));
}

/// A text from its first character that may belong to a number: without blanks before it and a plus.
std::string_view NumberIn(std::string_view text) {
    const std::size_t start = std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size());
    text.remove_prefix(start);
    const bool isPositive = text.size() > 1 && text[0] == '+' && text[1] != '-';
    return text.substr(isPositive ? 1 : 0);
}

/// A text as a whole number, as SQLite reads it: digits; beyond 64 bits the nearest end.
int64_t WholeNumberOf(std::string_view text) {
    const std::string_view digits = NumberIn(text);
    int64_t number = 0;
    if (std::from_chars(digits.begin(), digits.end(), number).ec == std::errc::result_out_of_range) {
        return digits[0] == '-' ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
    }
    return number;
}

/// A text as a real number, as SQLite reads it, but for its last place: digits, point and exponent; beyond
/// the largest number infinity.
double RealNumberOf(std::string_view text) {
    const std::string_view digits = NumberIn(text);
    const std::size_t first = digits.find_first_not_of('-');
    double real = 0.0;
    if (first <= 1 && (digits[first] == '.' || (digits[first] >= '0' && digits[first] <= '9')) &&
        std::from_chars(digits.begin(), digits.end(), real).ec == std::errc::result_out_of_range) {
        return std::strtod(std::string(digits).c_str(), nullptr);
    }
    return real;
}

/// SQLite's reading of a real number as a whole one: towards 0; beyond 64 bits the nearest end.
int64_t WholeNumberOf(double real) {
    constexpr double kLimit = 9223372036854775808.0;
    if (real <= -kLimit) {
        return std::numeric_limits<int64_t>::min();
    }
    return real >= kLimit ? std::numeric_limits<int64_t>::max() : static_cast<int64_t>(real);
}

void SetText(LumString& value, std::string_view text) {
    value.Clear();
    value.Append(text);
}

void SetText(LumString& value, int64_t number) {
    std::array<char, 24> digits{};
    const char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    SetText(value, std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data())));
}

void SetText(LumString& value, double real) {
    std::array<char, 64> digits{};
    sqlite3_snprintf(static_cast<int>(digits.size()), digits.data(), "%!.15g", real);
    SetText(value, std::string_view(digits.data()));
}

}  // namespace

GenSqlResultBuffer::GenSqlResultBuffer(sqlite3_stmt* statement) {
    const int columns = sqlite3_column_count(statement);
    names_.reserve(static_cast<std::size_t>(columns));
    for (int i = 0; i < columns; ++i) {
        names_.emplace_back(sqlite3_column_name(statement, i));
    }
    pending_.resize(names_.size());
    cells_.resize(names_.size());
}

bool GenSqlResultBuffer::AppendRow(sqlite3_stmt* statement) {
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < pending_.size(); ++i) {
        Pending& cell = pending_[i];
        if (!ReadCell(statement, static_cast<int>(i), cell)) {
            return false;
        }
        bytes += 1 + cell.length + (cell.header == kLongText ? 4 : 0);
    }
    char* to = MakeRoom(bytes);
    for (const Pending& cell : pending_) {
        *to++ = static_cast<char>(cell.header);
        if (cell.header < kLongText) {
            std::memcpy(to, &cell.number, sizeof(cell.number));
        } else {
            if (cell.header == kLongText) {
                std::memcpy(to, &cell.length, sizeof(cell.length));
                to += sizeof(cell.length);
            }
            std::copy_n(cell.bytes, cell.length, to);
        }
        to += cell.length;
    }
    return ++rowCount_ > 1 || SelectRow(0);
}

bool GenSqlResultBuffer::ReadCell(sqlite3_stmt* statement, int column, Pending& cell) {
    // The handle has no mutex of its own and its user holds the lock, so the value needs no protection.
    sqlite3_value* const value = sqlite3_column_value(statement, column);
    const int type = sqlite3_value_type(value);
    if (type == SQLITE_INTEGER) {
        cell.number = sqlite3_value_int64(value);
        cell.header = BytesOf(cell.number);
        cell.length = cell.header;
    } else if (type == SQLITE_FLOAT) {
        cell.number = std::bit_cast<int64_t>(sqlite3_value_double(value));
        cell.header = kReal;
        cell.length = sizeof(double);
    } else if (type == SQLITE_NULL) {
        cell.number = 0;
        cell.header = kNull;
        cell.length = 0;
    } else {
        cell.bytes = type == SQLITE_TEXT ? reinterpret_cast<const char*>(sqlite3_value_text(value))
                                         : static_cast<const char*>(sqlite3_value_blob(value));
        cell.length = static_cast<uint32_t>(sqlite3_value_bytes(value));
        cell.header =
            cell.length > kMaxShortText ? kLongText : static_cast<uint8_t>(kShortText + cell.length);
        return cell.bytes != nullptr || (type == SQLITE_BLOB && cell.length == 0);
    }
    return true;
}

char* GenSqlResultBuffer::MakeRoom(std::size_t bytes) {
    const std::size_t rows = blocks_.empty() ? 0 : rowCount_ - blocks_.back().firstRow;
    std::size_t places = (rows + 1) * sizeof(uint16_t);
    if (blocks_.empty() || used_ + bytes + kSlack + places > blocks_.back().size) {
        const std::size_t usual =
            blocks_.size() < 4 ? kFirstBlockBytes << (2 * blocks_.size()) : kMaxBlockBytes;
        const std::size_t size = std::max(std::min(usual, kMaxBlockBytes), bytes + kSlack + sizeof(uint16_t));
        blocks_.push_back({std::make_unique_for_overwrite<char[]>(size), size, rowCount_});
        used_ = 0;
        places = sizeof(uint16_t);
    }
    const Block& block = blocks_.back();
    const auto start = static_cast<uint16_t>(used_);
    std::memcpy(block.bytes.get() + block.size - places, &start, sizeof(start));
    used_ += bytes;
    return block.bytes.get() + start;
}

const char* GenSqlResultBuffer::RowAt(uint32_t index) {
    const auto holds = [this, index](std::size_t i) {
        return blocks_[i].firstRow <= index && (i + 1 == blocks_.size() || index < blocks_[i + 1].firstRow);
    };
    if (!holds(selectedBlock_)) {
        const auto after =
            std::upper_bound(blocks_.begin(), blocks_.end(), index,
                             [](uint32_t row, const Block& block) { return row < block.firstRow; });
        selectedBlock_ = static_cast<std::size_t>(after - blocks_.begin()) - 1;
    }
    const Block& block = blocks_[selectedBlock_];
    const std::size_t places = (static_cast<std::size_t>(index - block.firstRow) + 1) * sizeof(uint16_t);
    return block.bytes.get() + Load<uint16_t>(block.bytes.get() + block.size - places);
}

bool GenSqlResultBuffer::SelectRow(uint32_t index) {
    if (index >= rowCount_) {
        return false;
    }
    const char* cell = RowAt(index);
    for (const char*& place : cells_) {
        place = cell;
        cell += CellBytes(cell);
    }
    return true;
}

bool GenSqlResultBuffer::GetColumn(uint32_t column, LumString& value) const {
    if (!HasCell(column)) {
        return false;
    }
    const char* const cell = cells_[column];
    const auto header = static_cast<uint8_t>(*cell);
    if (header == kNull) {
        value.Clear();
    } else if (IsWhole(header)) {
        SetText(value, WholeNumber(cell));
    } else if (header == kReal) {
        SetText(value, Load<double>(cell + 1));
    } else {
        SetText(value, Text(cell));
    }
    return true;
}

bool GenSqlResultBuffer::GetColumn(uint32_t column, int64_t& value) const {
    if (!HasCell(column)) {
        return false;
    }
    const char* const cell = cells_[column];
    const auto header = static_cast<uint8_t>(*cell);
    if (header == kNull) {
        value = 0;
    } else if (IsWhole(header)) {
        value = WholeNumber(cell);
    } else if (header == kReal) {
        value = WholeNumberOf(Load<double>(cell + 1));
    } else {
        value = WholeNumberOf(Text(cell));
    }
    return true;
}

bool GenSqlResultBuffer::GetColumn(uint32_t column, double& value) const {
    if (!HasCell(column)) {
        return false;
    }
    const char* const cell = cells_[column];
    const auto header = static_cast<uint8_t>(*cell);
    if (header == kNull) {
        value = 0.0;
    } else if (IsWhole(header)) {
        value = static_cast<double>(WholeNumber(cell));
    } else if (header == kReal) {
        value = Load<double>(cell + 1);
    } else {
        value = RealNumberOf(Text(cell));
    }
    return true;
}

bool GenSqlResultBuffer::GetColumn(uint32_t column, bool& value) const {
    int64_t number = 0;
    if (!GetColumn(column, number)) {
        return false;
    }
    value = number != 0;
    return true;
}

bool GenSqlResultBuffer::FindColumn(const LumString& name, uint32_t& column) const {
    const auto found = std::find_if(names_.begin(), names_.end(), [&name](const LumString& candidate) {
        return candidate.IsEqualTo(name, false);
    });
    if (found == names_.end()) {
        return false;
    }
    column = static_cast<uint32_t>(found - names_.begin());
    return true;
}
