#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <sqlite3.h>

/// A database opened as a foreign program opens it, with SQLite's own interface; it is made where it is
/// missing. What SQLite refuses is an exception with its message and the statement.
class Sqlite {
public:
    explicit Sqlite(const std::string& path, int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);

    [[nodiscard]] sqlite3* Get() const { return database_.get(); }

    /// Runs any number of statements and drops their rows.
    void Run(const std::string& sql) const;
    /// The same for statements that may fail: SQLite's result code.
    [[nodiscard]] int Try(const std::string& sql) const;

    /// Calls `visit` for each row of one statement.
    void ForEachRow(std::string_view sql, const std::function<void(sqlite3_stmt*)>& visit) const;
    /// The cells of each row as text, NULL for one without a value: parted by |, rows by line ends.
    [[nodiscard]] std::string Rows(std::string_view sql) const;
    /// The first cell of each row.
    [[nodiscard]] std::vector<std::string> Column(std::string_view sql) const;

private:
    void Check(bool holds, std::string_view what) const;

    std::unique_ptr<sqlite3, int (*)(sqlite3*)> database_{nullptr, sqlite3_close};
};
