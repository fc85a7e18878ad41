#include "host/database/internal/statement/WatchedStatement.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

namespace {

/// Steps of SQLite's machine between two looks; some milliseconds.
constexpr int kStepsBetween = 20000;
constexpr std::chrono::milliseconds kPatience(200);

int64_t NumberOf(sqlite3* database, const char* pragma) {
    int64_t answer = 0;
    sqlite3_exec(
        database, pragma,
        [](void* place, int /*columns*/, char** values, char** /*names*/) {
            // Null where there is no memory for the number's text.
            *static_cast<int64_t*>(place) = values[0] != nullptr ? std::strtoll(values[0], nullptr, 10) : 0;
            return 0;
        },
        &answer, nullptr);
    return answer;
}

}  // namespace

WatchedStatement::WatchedStatement(sqlite3* database, const DBConnection::Watch* watch)
    : database_(database), watch_(watch) {
    if (watch_ == nullptr) {
        return;
    }
    bytes_ = std::max<int64_t>(
        NumberOf(database_, "PRAGMA page_count") * NumberOf(database_, "PRAGMA page_size"), 1);
    std::snprintf(figures_.data(), figures_.size(), "/proc/self/task/%d/io", gettid());
    readBefore_ = BytesRead();
    sqlite3_progress_handler(
        database_, kStepsBetween,
        [](void* self) { return static_cast<WatchedStatement*>(self)->MayGoOn() ? 0 : 1; }, this);
    try {
        watcher_ = std::thread([this] { AskWhereSqliteDoesNot(); });
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): then SQLite alone asks
    }
}

WatchedStatement::~WatchedStatement() {
    if (watcher_.joinable()) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            isOver_ = true;
        }
        changed_.notify_all();
        watcher_.join();
    }
    if (watch_ != nullptr) {
        sqlite3_progress_handler(database_, 0, nullptr, nullptr);
    }
}

bool WatchedStatement::WasStopped() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return stopped_;
}

bool WatchedStatement::MayGoOn() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return Ask();
}

void WatchedStatement::AskWhereSqliteDoesNot() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!isOver_ && !stopped_) {
        changed_.wait_until(lock, asked_ + kPatience);
        if (!isOver_ && Clock::now() >= asked_ + kPatience && !Ask()) {
            sqlite3_interrupt(database_);
        }
    }
}

bool WatchedStatement::Ask() {
    asked_ = Clock::now();
    const int64_t percent = (BytesRead() - readBefore_) * 100 / bytes_;
    try {
        stopped_ = stopped_ || !(*watch_)(static_cast<uint32_t>(std::clamp<int64_t>(percent, 0, 99)));
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): without memory it is asked again later
    }
    return !stopped_;
}

int64_t WatchedStatement::BytesRead() const {
    // "rchar: <number>" is the first line. Asked for without memory of its own, which may be what is short.
    char text[64] = {};
    const int file = open(figures_.data(), O_RDONLY | O_CLOEXEC);
    const bool isRead = file >= 0 && read(file, text, sizeof text - 1) > 0;
    if (file >= 0) {
        close(file);
    }
    const char* const number = isRead ? std::strchr(text, ' ') : nullptr;
    return number != nullptr ? std::strtoll(number, nullptr, 10) : 0;  // a system that does not say
}
