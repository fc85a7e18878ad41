#include "support/Sqlite.h"

#include <stdexcept>

namespace {

constexpr int kBusyMs = 5000;

std::string Cell(sqlite3_stmt* statement, int column) {
    const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    return text != nullptr ? text : "NULL";
}

}  // namespace

Sqlite::Sqlite(const std::string& path, int flags) {
    sqlite3* opened = nullptr;
    const int status = sqlite3_open_v2(path.c_str(), &opened, flags, nullptr);
    database_.reset(opened);
    Check(status == SQLITE_OK, path);
    sqlite3_busy_timeout(opened, kBusyMs);
}

void Sqlite::Check(bool holds, std::string_view what) const {
    if (!holds) {
        throw std::runtime_error(std::string(what) + ": " + sqlite3_errmsg(Get()));
    }
}

void Sqlite::Run(const std::string& sql) const {
    Check(Try(sql) == SQLITE_OK, sql);
}

int Sqlite::Try(const std::string& sql) const {
    return sqlite3_exec(Get(), sql.c_str(), nullptr, nullptr, nullptr);
}

void Sqlite::ForEachRow(std::string_view sql, const std::function<void(sqlite3_stmt*)>& visit) const {
    sqlite3_stmt* prepared = nullptr;
    Check(
        sqlite3_prepare_v2(Get(), sql.data(), static_cast<int>(sql.size()), &prepared, nullptr) == SQLITE_OK,
        sql);
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> statement(prepared, sqlite3_finalize);
    int result = sqlite3_step(prepared);
    for (; result == SQLITE_ROW; result = sqlite3_step(prepared)) {
        visit(prepared);
    }
    Check(result == SQLITE_DONE, sql);
}

std::string Sqlite::Rows(std::string_view sql) const {
    std::string text;
    ForEachRow(sql, [&, first = true](sqlite3_stmt* statement) mutable {
        text += first ? "" : "\n";
        first = false;
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            text.append(i > 0 ? "|" : "").append(Cell(statement, i));
        }
    });
    return text;
}

std::vector<std::string> Sqlite::Column(std::string_view sql) const {
    std::vector<std::string> cells;
    ForEachRow(sql, [&](sqlite3_stmt* statement) { cells.push_back(Cell(statement, 0)); });
    return cells;
}
