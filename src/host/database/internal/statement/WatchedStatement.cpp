#include "host/database/internal/statement/WatchedStatement.h"

#include <algorithm>
#include <cstdlib>

#include <sqlite3.h>

namespace {

/// Steps of SQLite's machine between two looks; some milliseconds.
constexpr int kStepsBetween = 20000;

int64_t PageCount(sqlite3* database) {
    int64_t count = 0;
    sqlite3_exec(
        database, "PRAGMA page_count",
        [](void* place, int /*columns*/, char** values, char** /*names*/) {
            // Null where there is no memory for the number's text.
            *static_cast<int64_t*>(place) = values[0] != nullptr ? std::strtoll(values[0], nullptr, 10) : 0;
            return 0;
        },
        &count, nullptr);
    return count;
}

int64_t PagesRead(sqlite3* database) {
    int read = 0;
    int highest = 0;
    sqlite3_db_status(database, SQLITE_DBSTATUS_CACHE_MISS, &read, &highest, 0);
    return read;
}

}  // namespace

WatchedStatement::WatchedStatement(sqlite3* database, const DBConnection::Watch* watch)
    : database_(database), watch_(watch) {
    if (watch_ != nullptr) {
        pages_ = std::max<int64_t>(PageCount(database_), 1);
        readBefore_ = PagesRead(database_);
        sqlite3_progress_handler(
            database_, kStepsBetween,
            [](void* self) { return static_cast<WatchedStatement*>(self)->MayGoOn() ? 0 : 1; }, this);
    }
}

WatchedStatement::~WatchedStatement() {
    if (watch_ != nullptr) {
        sqlite3_progress_handler(database_, 0, nullptr, nullptr);
    }
}

bool WatchedStatement::MayGoOn() {
    const int64_t percent = (PagesRead(database_) - readBefore_) * 100 / pages_;
    stopped_ = !(*watch_)(static_cast<uint32_t>(std::clamp<int64_t>(percent, 0, 99)));
    return !stopped_;
}
