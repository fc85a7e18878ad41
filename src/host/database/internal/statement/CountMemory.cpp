#include "host/database/internal/statement/CountMemory.h"

#include <algorithm>
#include <new>

#include <sqlite3.h>

#include "host/database/internal/GenSqlResultBuffer.h"

namespace {

constexpr std::string_view kCountOf = "SELECT COUNT (*) FROM ";

bool IsNameCharacter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

/// The name after "SELECT COUNT (*) FROM " where nothing else follows; empty for any other statement.
std::string_view CountedName(std::string_view sql) {
    if (!sql.starts_with(kCountOf)) {
        return {};
    }
    sql.remove_prefix(kCountOf.size());
    if (sql.ends_with(';')) {
        sql.remove_suffix(1);
    }
    return std::all_of(sql.begin(), sql.end(), IsNameCharacter) ? sql : std::string_view();
}

/// A view may have another number of rows although nothing has changed.
bool IsTable(sqlite3* database, std::string_view name) {
    return sqlite3_table_column_metadata(database, nullptr, std::string(name).c_str(), nullptr, nullptr,
                                         nullptr, nullptr, nullptr, nullptr) == SQLITE_OK;
}

}  // namespace

std::string CountMemory::Recall(sqlite3* database, std::string_view sql) {
    try {
        const std::string_view name = CountedName(sql);
        if (name.empty() || !IsTable(database, name)) {
            return {};
        }
        // Asked for before the table is counted: a commit after it makes the count out of date, not wrong.
        const std::optional<int64_t> version = AskVersion(database);
        if (!version || version != version_) {
            Forget();
            version_ = version;
        }
        const auto count = counts_.find(sql);
        return count == counts_.end() ? std::string()
                                      : "SELECT " + std::to_string(count->second) + " AS \"COUNT (*)\"";
    } catch (const std::bad_alloc&) {
        return {};
    }
}

void CountMemory::Note(std::string_view sql, const GenSqlResultBuffer& rows) {
    int64_t count = 0;
    if (!version_ || CountedName(sql).empty() || !rows.GetColumn(0, count) || count < kFewestRows) {
        return;
    }
    try {
        counts_.insert_or_assign(std::string(sql), count);
    } catch (const std::bad_alloc&) {
        Forget();
    }
}

void CountMemory::Close() {
    Forget();
    version_.reset();
    askVersion_.reset();
}

std::optional<int64_t> CountMemory::AskVersion(sqlite3* database) {
    if (askVersion_ == nullptr) {
        sqlite3_stmt* prepared = nullptr;
        if (sqlite3_prepare_v3(database, "PRAGMA data_version", -1, SQLITE_PREPARE_PERSISTENT, &prepared,
                               nullptr) != SQLITE_OK) {
            return std::nullopt;
        }
        askVersion_.reset(prepared);
    }
    std::optional<int64_t> version;
    if (sqlite3_step(askVersion_.get()) == SQLITE_ROW) {
        version = sqlite3_column_int64(askVersion_.get(), 0);
    }
    sqlite3_reset(askVersion_.get());
    return version;
}
