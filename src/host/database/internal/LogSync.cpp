#include "host/database/internal/LogSync.h"

#include <utility>

#include <sqlite3.h>

#include "host/database/internal/DatabaseFigures.h"

uint64_t LogSync::NoteCommit(sqlite3* database) {
    if (file_.load(std::memory_order_relaxed) == nullptr) {
        sqlite3_file* file = nullptr;
        // The log stays open for as long as the database does.
        if (sqlite3_file_control(database, "main", SQLITE_FCNTL_JOURNAL_POINTER, &file) == SQLITE_OK) {
            file_.store(file, std::memory_order_release);
        }
    }
    return committed_.fetch_add(1, std::memory_order_acq_rel) + 1;
}

bool LogSync::Await(uint64_t ticket, std::string& error) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (durable_ < ticket && !HasFailed()) {
        if (syncing_) {
            changed_.wait(lock);
        } else {
            SyncForAll(lock);
        }
    }
    if (durable_ >= ticket) {
        return true;
    }
    error = std::exchange(untoldReason_, {});
    return false;
}

void LogSync::SyncForAll(std::unique_lock<std::mutex>& lock) {
    syncing_ = true;
    lock.unlock();
    const uint64_t reached = committed_.load(std::memory_order_acquire);
    const int status = Sync();
    lock.lock();
    syncing_ = false;
    if (status == SQLITE_OK) {
        CountSync(reached - durable_);
        durable_ = reached;
    } else {
        Fail(sqlite3_errstr(status));
    }
    changed_.notify_all();
}

int LogSync::Sync() const {
    sqlite3_file* const file = file_.load(std::memory_order_acquire);
    if (file == nullptr || file->pMethods == nullptr) {
        return SQLITE_IOERR_FSYNC;
    }
    return file->pMethods->xSync(file, SQLITE_SYNC_NORMAL);
}

void LogSync::NoteFailure(const std::string& reason) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Fail(reason);
    changed_.notify_all();
}

void LogSync::Fail(const std::string& reason) {
    if (!failed_.exchange(true, std::memory_order_acq_rel)) {
        untoldReason_ = reason;
    }
}

void LogSync::Detach() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return !syncing_; });
    if (durable_ < committed_.load(std::memory_order_acquire) && !HasFailed()) {
        SyncForAll(lock);
    }
    // Nobody may start another one: the file is about to go.
    Fail("the database was closed");
    file_.store(nullptr, std::memory_order_release);
    changed_.notify_all();
}

void LogSync::Forget() {
    const std::lock_guard<std::mutex> lock(mutex_);
    untoldReason_.clear();
}
