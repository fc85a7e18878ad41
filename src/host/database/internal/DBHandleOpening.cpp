// How a handle opens its database, and opens it anew.

#include <atomic>
#include <new>
#include <string>

#include <sqlite3.h>

#include "host/database/internal/DBHandle.h"
#include "host/database/internal/SqliteSetup.h"

namespace {

/// What the write-ahead log is cut back to once it has grown beyond it: a vacuum writes the whole database
/// into it.
constexpr const char* kLimitLog = "PRAGMA journal_size_limit = 16777216";
constexpr const char* kUseLog = "PRAGMA journal_mode = WAL";
std::atomic<DBSynchronous> wantedSynchronous{DBSynchronous::kFull};

}  // namespace

void DBHandle::SetSynchronous(DBSynchronous synchronous) {
    wantedSynchronous.store(synchronous, std::memory_order_relaxed);
}

void DBHandle::Close() {
    for (OwnedStatement& control : controls_) {
        control.reset();
    }
    cache_.Clear();
    counts_.Close();
    if (log_ != nullptr) {
        log_->Detach();
        log_.reset();
    }
    lastCommit_ = 0;
    database_.reset();
    transactionUser_.store(nullptr, std::memory_order_relaxed);
}

bool DBHandle::LeaveReadOnly() {
    if (!readsAlone_ || IsInAnyTransaction() || !files_.CanBeWritten()) {
        return false;
    }
    Close();
    return true;
}

bool DBHandle::EnsureOpen(DBOutcome& outcome) {
    if (log_ != nullptr && log_->HasFailed() && IsInTransaction(nullptr)) {
        suspect_ = true;
        Close();
    }
    if (database_ != nullptr) {
        static_cast<void>(LeaveReadOnly());  // what is open for reading may be read meanwhile
    }
    if (database_ != nullptr) {
        return true;
    }
    if (path_.empty()) {
        outcome.error = "no database is selected";
        return false;
    }
    std::string reason;
    if (Open(reason)) {
        suspect_ = false;
        files_.Remember();
        openCount_.fetch_add(1, std::memory_order_relaxed);
        return true;
    }
    outcome.error = "cannot open database '" + path_ + "': " + reason;
    outcome.isChange = true;  // it is not known, and no change could be made either
    outcome.byMachine = true;
    Close();
    return false;
}

bool DBHandle::Open(std::string& error) {
    try {
        return OpenFile(error) && Configure(error) && (!suspect_ || ProveSound(error));
    } catch (const std::bad_alloc&) {
        error = sqlite3_errstr(SQLITE_NOMEM);
        return false;
    }
}

bool DBHandle::OpenFile(std::string& error) {
    if (!files_.Prepare(error)) {
        return false;
    }
    SetUpSqlite();
    sqlite3* opened = nullptr;
    const int status =
        sqlite3_open_v2(path_.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    database_.reset(opened);
    if (status != SQLITE_OK) {
        error = opened != nullptr ? sqlite3_errmsg(opened) : sqlite3_errstr(status);
        return false;
    }
    readsAlone_ = sqlite3_db_readonly(opened, "main") == 1;
    return true;
}

bool DBHandle::Configure(std::string& error) {
    sqlite3* const database = database_.get();
    patience_.GiveTo(database);
    std::string mode;
    if (!SetSqlite(database, kUseLog, mode, error) || !SetSqlite(database, kLimitLog, error)) {
        return false;
    }
    const bool full = wantedSynchronous.load(std::memory_order_relaxed) == DBSynchronous::kFull;
    if (mode != "wal") {
        return SetSqlite(database, full ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL", error);
    }
    // SQLite keeps the log in order; the sync of a commit is made for all who wait for theirs.
    log_ = full ? std::make_shared<LogSync>() : nullptr;
    sqlite3_wal_hook(database, OnCommit, this);
    return SetSqlite(database, "PRAGMA synchronous = NORMAL", error);
}

bool DBHandle::ProveSound(std::string& error) {
    // What the memory still holds of the log is written and synced anew, as part of the database.
    if (!CutBack()) {
        error = sqlite3_errmsg(database_.get());
        return false;
    }
    std::string answer;
    if (!AskSqlite(database_.get(), "PRAGMA quick_check(1)", answer, error)) {
        return false;
    }
    if (answer != "ok") {
        error = "it is not sound after a failed sync: " + answer;
    }
    return answer == "ok";
}
