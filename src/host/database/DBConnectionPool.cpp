#include <new>
#include <utility>

#include "host/database/internal/DBConnectionPoolImpl.h"

namespace {

constexpr const char* kSqlite3 = "SQLITE23";

}  // namespace

LumDebug& DBConnectionPool::Impl::Debug() const {
    LumDebug* const debug = debug_.load(std::memory_order_acquire);
    return debug != nullptr ? *debug : LumHostDebug();
}

void DBConnectionPool::Impl::NoteChange(const DBOutcome& outcome, bool done) {
    const bool failed = !done && outcome.byMachine && !outcome.wasStopped;
    if (!outcome.isChange || (!failed && (!done || !changesFail_.load(std::memory_order_relaxed)))) {
        return;
    }
    changesFail_.store(failed, std::memory_order_relaxed);
    if (const ChangeAction action = changeAction_.load()) {
        try {
            action(LumString(outcome.error.c_str()));
        } catch (const std::bad_alloc&) {
            // What was changed stays changed, whether it can be told or not. The next change is told anew.
            changesFail_.store(!failed, std::memory_order_relaxed);
        }
    }
}

void DBConnectionPool::Impl::NoteFailedSync(const std::string& reason) {
    DBOutcome outcome;
    outcome.error = "Failed to sync the write-ahead log: " + reason;
    outcome.isChange = true;
    outcome.byMachine = true;
    Debug().ErrorWithNL("DBConnection: %S", std::string_view(outcome.error));
    NoteChange(outcome, false);
}

void DBConnectionPool::Impl::SetPath(const LumString& path) {
    path_ = path;
    shared_ = std::make_shared<DBHandle>(path);
    const LumMutexLock lock(mutex_);
    idle_.clear();
}

std::shared_ptr<DBHandle> DBConnectionPool::Impl::Take() {
    if (serial_.load(std::memory_order_relaxed)) {
        return shared_;
    }
    {
        const LumMutexLock lock(mutex_);
        if (!idle_.empty()) {
            std::shared_ptr<DBHandle> handle = std::move(idle_.back());
            idle_.pop_back();
            return handle;
        }
    }
    return std::make_shared<DBHandle>(path_);
}

void DBConnectionPool::Impl::GiveBack(std::shared_ptr<DBHandle> handle) {
    if (handle == shared_) {
        return;
    }
    const LumMutexLock lock(mutex_);
    try {
        idle_.push_back(std::move(handle));
    } catch (const std::bad_alloc&) {
        handle.reset();  // the next connection opens another one
    }
}

DBConnectionPool::DBConnectionPool() : impl_(std::make_unique<Impl>()) {}

DBConnectionPool::~DBConnectionPool() = default;

void DBConnectionPool::SetDebug(LumDebug& debug) {
    impl_->SetDebug(debug);
}

void DBConnectionPool::SetChangeAction(ChangeAction action) {
    impl_->SetChangeAction(action);
}

uint32_t DBConnectionPool::GetOpenCount() const {
    return impl_->GetOpenCount();
}

bool DBConnectionPool::SetDatabase(const LumString& type, const LumString& /*server*/,
                                   const LumString& database, const LumString& /*user*/,
                                   const LumString& /*password*/, uint32_t /*port*/) {
    if (!(type == kSqlite3)) {
        impl_->Debug().ErrorWithNL("DBConnectionPool: unknown type of database '%S'", type);
        return false;
    }
    impl_->SetPath(database);
    return true;
}

void DBConnectionPool::SetSerialConnections(bool serial) {
    impl_->SetSerial(serial);
}

void DBConnectionPool::SetSynchronous(DBSynchronous synchronous) {
    DBHandle::SetSynchronous(synchronous);
}
