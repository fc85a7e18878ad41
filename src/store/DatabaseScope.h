#pragma once

#include <cstdint>

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
///
/// When it ends and the thread holds the lock no more, it waits until what was committed is durable, so that
/// whatever the routine does next may rely on it.
class DatabaseScope {
public:
    /// Who waits for the changes to be durable.
    enum class Durability : uint8_t { kScope, kCaller };

    /// `routine` is the one that says "Failed to lock database".
    explicit DatabaseScope(const LumRoutine& routine, Durability durability = Durability::kScope);
    DatabaseScope(const DatabaseScope&) = delete;
    DatabaseScope& operator=(const DatabaseScope&) = delete;
    ~DatabaseScope();

    /// False where the lock could not be taken. The connection works all the same, for the few routines that
    /// go on.
    [[nodiscard]] bool IsLocked() const { return lock_.IsHeld(); }

    [[nodiscard]] DBConnection& Connection() { return connection_; }
    [[nodiscard]] GenSqlResult* Query(const LumString& sql) { return connection_.Query(sql); }

    /// Releases the lock before the scope ends. Results stay readable until it does.
    void Unlock();

private:
    /// DatabaseMutex, for as long as it is not given back before. A member of its own, so that it is given
    /// back also where there is no memory for the connection.
    class HeldLock {
    public:
        explicit HeldLock(const LumRoutine& routine);
        HeldLock(const HeldLock&) = delete;
        HeldLock& operator=(const HeldLock&) = delete;
        ~HeldLock() { GiveBack(); }

        [[nodiscard]] bool IsHeld() const { return held_; }
        void GiveBack() LUM_NO_THREAD_SAFETY_ANALYSIS;

    private:
        bool held_;
    };

    const Durability durability_;
    HeldLock lock_;
    DBConnection connection_;
};
