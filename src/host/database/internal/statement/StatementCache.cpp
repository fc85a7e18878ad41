#include "host/database/internal/statement/StatementCache.h"

#include <algorithm>

#include <sqlite3.h>

void StatementCloser::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

sqlite3_stmt* StatementCache::Get(sqlite3* database, const StatementShape& shape) {
    if (sqlite3_stmt* const held = Find(shape)) {
        return held;
    }
    if (!shape.HasPlainPrefix()) {
        return nullptr;
    }
    const std::string text = shape.Parametrised();
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v3(database, text.c_str(), static_cast<int>(text.size() + 1),
                           SQLITE_PREPARE_PERSISTENT, &prepared, nullptr) != SQLITE_OK) {
        return nullptr;
    }
    OwnedStatement statement(prepared);
    if (entries_.size() == kMaxStatements) {
        entries_.pop_back();
    }
    entries_.insert(entries_.begin(), std::make_unique<Entry>(Entry{std::string(shape.Prefix()),
                                                                    shape.Count(), std::move(statement)}));
    return prepared;
}

sqlite3_stmt* StatementCache::Find(const StatementShape& shape) {
    for (auto entry = entries_.begin(); entry != entries_.end(); ++entry) {
        if ((*entry)->count == shape.Count() && (*entry)->prefix == shape.Prefix()) {
            std::rotate(entries_.begin(), entry, entry + 1);
            return entries_.front()->statement.get();
        }
    }
    return nullptr;
}
