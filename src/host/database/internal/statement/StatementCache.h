#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/database/internal/statement/StatementShape.h"

struct sqlite3;
struct sqlite3_stmt;

struct StatementCloser {
    void operator()(sqlite3_stmt* statement) const;
};
using OwnedStatement = std::unique_ptr<sqlite3_stmt, StatementCloser>;

/// The prepared statements of one handle that were used last, by the shape that they were prepared for.
/// Belongs to whoever holds the handle's lock.
class StatementCache {
public:
    static constexpr std::size_t kMaxStatements = 64;

    /// The statement of that shape, prepared now where it is not held; null where that cannot be done. Stays
    /// valid until the next call.
    [[nodiscard]] sqlite3_stmt* Get(sqlite3* database, const StatementShape& shape);
    void Clear() { entries_.clear(); }
    [[nodiscard]] std::size_t GetCount() const { return entries_.size(); }

private:
    struct Entry {
        std::string prefix;
        std::size_t count;
        OwnedStatement statement;
    };

    [[nodiscard]] sqlite3_stmt* Find(const StatementShape& shape);

    std::vector<std::unique_ptr<Entry>> entries_;  // the one used last comes first
};
