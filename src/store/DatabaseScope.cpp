#include "store/DatabaseScope.h"

#include <algorithm>

#include "host/log/LumDebug.h"
#include "host/thread/LumMutex.h"
#include "model/ModuleLog.h"

namespace {

bool LockDatabase(std::string_view routine) LUM_NO_THREAD_SAFETY_ANALYSIS {
    if (DatabaseMutex.Lock()) {
        return true;
    }
    ModuleDebug.ErrorWithNL("%S: Failed to lock database", routine);
    return false;
}

}  // namespace

DatabaseScope::DatabaseScope(std::string_view routine)
    : locked_(LockDatabase(routine)), connection_(DatabasePool) {}

DatabaseScope::~DatabaseScope() {
    Unlock();
}

void DatabaseScope::Unlock() {
    if (locked_) {
        locked_ = false;
        DatabaseMutex.Unlock();
    }
}

bool RunInTransaction(DBConnection& connection, const std::vector<LumString>& statements) {
    if (!connection.BeginTransaction()) {
        return false;
    }
    const bool done = std::all_of(statements.begin(), statements.end(), [&](const LumString& statement) {
        return connection.Query(statement) != nullptr;
    });
    if (done && connection.CommitTransaction()) {
        return true;
    }
    static_cast<void>(
        connection.RollbackTransaction());  // has its own log line; the failure is told by the result
    return false;
}
