#pragma once

#include <string_view>
#include <vector>

#include "host/database/Database.h"
#include "host/text/LumString.h"
#include "host/thread/LumMutex.h"
#include "host/thread/LumThreadSafety.h"
#include "model/ModuleLog.h"

extern DBConnectionPool DatabasePool;
/// Taken around every statement on DatabasePool, before the connection is made. The first of the module's
/// locks: AlertGapMutex may be taken while it is held, never the other way round.
extern LumMutex DatabaseMutex;

/// What every routine does around its work on the database: takes DatabaseMutex, says in the log when it
/// cannot, and has a connection, made after the lock was taken. Belongs to one thread.
class DatabaseScope {
public:
    /// `routine` is the name in the log line "<routine>: Failed to lock database".
    explicit DatabaseScope(std::string_view routine) LUM_NO_THREAD_SAFETY_ANALYSIS;
    DatabaseScope(const DatabaseScope&) = delete;
    DatabaseScope& operator=(const DatabaseScope&) = delete;
    ~DatabaseScope();

    /// False where the lock could not be taken. The connection works all the same, for the few routines that
    /// go on.
    [[nodiscard]] bool IsLocked() const { return locked_; }

    [[nodiscard]] DBConnection& Connection() { return connection_; }
    [[nodiscard]] GenSqlResult* Query(const LumString& sql) { return connection_.Query(sql); }

    /// Releases the lock before the scope ends. Results stay readable until it does.
    void Unlock() LUM_NO_THREAD_SAFETY_ANALYSIS;

private:
    bool locked_;
    DBConnection connection_;
};

/// Runs the statements in one transaction, in order, and stops at the first failure: true where all of them
/// and the commit succeeded; else all is rolled back. The lock is the caller's.
[[nodiscard]] bool RunInTransaction(DBConnection& connection, const std::vector<LumString>& statements);
