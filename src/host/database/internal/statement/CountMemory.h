#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "host/database/internal/statement/StatementCache.h"

class GenSqlResultBuffer;
struct sqlite3;

/// Remembers how many rows large tables have, until anything changes. SQLite counts a table by reading a
/// whole index of it, and whoever reads a table page by page asks for the count with every page.
///
/// Changes by other connections, those of other processes among them, are noticed here; of the changes by
/// this one Forget has to tell. Belongs to whoever holds the handle's lock.
class CountMemory {
public:
    /// Smaller tables are counted in less time than it takes to see whether anything has changed.
    static constexpr int64_t kFewestRows = 10000;

    /// A statement that returns what `sql` would, without the counting; empty where `sql` is to be run
    /// itself.
    [[nodiscard]] std::string Recall(sqlite3* database, std::string_view sql);
    /// Takes note of what `sql`, for which Recall has just had nothing, returned.
    void Note(std::string_view sql, const GenSqlResultBuffer& rows);
    /// To be called for all but a SELECT that succeeded.
    void Forget() { counts_.clear(); }
    /// To be called before the database is closed.
    void Close();

private:
    /// A number that changes when another connection commits; nothing where SQLite does not tell.
    [[nodiscard]] std::optional<int64_t> AskVersion(sqlite3* database);

    OwnedStatement askVersion_;
    std::optional<int64_t> version_;                      ///< no later than any of the counts
    std::map<std::string, int64_t, std::less<>> counts_;  ///< by the statement that counts
};
