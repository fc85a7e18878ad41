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
            WaitForSync(ticket, lock);
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

void LogSync::WaitForSync(uint64_t ticket, std::unique_lock<std::mutex>& lock) {
    ended_[(ticket <= reached_ ? syncs_ : syncs_ + 1) % 2].wait(lock);
}

void LogSync::SyncForAll(std::unique_lock<std::mutex>& lock) {
    syncing_ = true;
    const uint64_t sync = ++syncs_;
    reached_ = committed_.load(std::memory_order_acquire);
    lock.unlock();
    const int status = Sync();
    lock.lock();
    syncing_ = false;
    if (status == SQLITE_OK) {
        CountSync(reached_ - durable_);
        durable_ = reached_;
        ended_[(sync + 1) % 2].notify_one();  // makes the next one
    } else {
        Fail(sqlite3_errstr(status));
    }
    ended_[sync % 2].notify_all();
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
}

void LogSync::Fail(const std::string& reason) {
    if (!failed_.exchange(true, std::memory_order_acq_rel)) {
        untoldReason_ = reason;
    }
    for (std::condition_variable& ended : ended_) {
        ended.notify_all();
    }
}

void LogSync::Detach() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (syncing_) {
        ended_[syncs_ % 2].wait(lock);
    }
    if (durable_ < committed_.load(std::memory_order_acquire) && !HasFailed()) {
        SyncForAll(lock);
    }
    // Nobody may start another one: the file is about to go.
    Fail("the database was closed");
    file_.store(nullptr, std::memory_order_release);
}

void LogSync::Forget() {
    const std::lock_guard<std::mutex> lock(mutex_);
    untoldReason_.clear();
}
