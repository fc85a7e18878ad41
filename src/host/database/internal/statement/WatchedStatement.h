#pragma once

#include <cstdint>

#include "host/database/Database.h"

struct sqlite3;

/// Lets a watch look at the statements of a database while this exists. Belongs to whoever holds the handle's
/// lock.
class WatchedStatement {
public:
    /// `watch` may be null.
    WatchedStatement(sqlite3* database, const DBConnection::Watch* watch);
    WatchedStatement(const WatchedStatement&) = delete;
    WatchedStatement& operator=(const WatchedStatement&) = delete;
    ~WatchedStatement();

    [[nodiscard]] bool WasStopped() const { return stopped_; }

private:
    [[nodiscard]] bool MayGoOn();

    sqlite3* const database_;
    const DBConnection::Watch* const watch_;
    int64_t pages_ = 0;
    int64_t readBefore_ = 0;
    bool stopped_ = false;
};
