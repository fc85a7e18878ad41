#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "host/database/Database.h"

struct sqlite3;

/// Lets a watch look at the statements of a database while this exists. Belongs to whoever holds the handle's
/// lock.
///
/// SQLite asks between the steps of its machine, but one step may read all of a large database: where it has
/// not asked for a while, a thread of this object's own asks in its place.
class WatchedStatement {
public:
    /// `watch` may be null.
    WatchedStatement(sqlite3* database, const DBConnection::Watch* watch);
    WatchedStatement(const WatchedStatement&) = delete;
    WatchedStatement& operator=(const WatchedStatement&) = delete;
    ~WatchedStatement();

    [[nodiscard]] bool WasStopped();

private:
    using Clock = std::chrono::steady_clock;

    [[nodiscard]] bool MayGoOn();
    void AskWhereSqliteDoesNot();
    /// To be called with the lock held.
    [[nodiscard]] bool Ask();
    /// How many bytes the thread of the statement has read, from whatever.
    [[nodiscard]] int64_t BytesRead() const;

    // Constant after construction.
    sqlite3* const database_;
    const DBConnection::Watch* const watch_;
    std::array<char, 64> figures_{};  // the file in which the system keeps those of the thread
    int64_t bytes_ = 1;
    int64_t readBefore_ = 0;

    std::mutex mutex_;
    // Guarded by mutex_.
    bool stopped_ = false;
    bool isOver_ = false;
    Clock::time_point asked_ = Clock::now();

    std::condition_variable changed_;
    std::thread watcher_;
};
