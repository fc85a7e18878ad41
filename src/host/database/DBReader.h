#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// Reads a database file that another process may be writing, row by row, and can change nothing: the file is
/// opened for reading alone, and of the statements that it is given only those are taken that read. Belongs
/// to one thread.
class LUM_API DBReader {
public:
    enum class Kind : uint8_t { kNull, kInteger, kReal, kText, kBlob };
    enum class Step : uint8_t { kRow, kEnd, kFailed };

    DBReader();
    DBReader(const DBReader&) = delete;
    DBReader& operator=(const DBReader&) = delete;
    ~DBReader();

    /// False, with the reason as a part of a sentence in `error`, where the file is not there, may not be
    /// read or is not a database.
    [[nodiscard]] bool Open(const LumString& path, LumString& error);

    /// Makes a view that lives as long as the reader: `name` and its columns are written as they stand.
    [[nodiscard]] bool DefineView(const LumString& name, const LumString& select, LumString& error);

    /// Begins one statement in place of the one before. False, with the reason, for text that is not exactly
    /// one statement, for one that does anything but read, and for one that the database does not understand.
    [[nodiscard]] bool Begin(const LumString& sql, LumString& error);
    [[nodiscard]] Step Next(LumString& error);

    [[nodiscard]] uint32_t GetColumnCount() const;
    [[nodiscard]] std::string_view GetColumnName(uint32_t column) const;
    [[nodiscard]] Kind GetKind(uint32_t column) const;
    [[nodiscard]] int64_t GetInteger(uint32_t column) const;
    [[nodiscard]] double GetReal(uint32_t column) const;
    /// Any value as text; lives until the next Next or Begin.
    [[nodiscard]] std::string_view GetText(uint32_t column) const;

private:
    struct Impl;

    std::unique_ptr<Impl> impl_;
};
