#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/database/Database.h"
#include "host/database/internal/DatabaseFiles.h"
#include "host/database/internal/GenSqlResultBuffer.h"
#include "host/database/internal/LockPatience.h"
#include "host/database/internal/LogSync.h"
#include "host/database/internal/statement/CountMemory.h"
#include "host/database/internal/statement/StatementCache.h"
#include "host/thread/LumMutex.h"

struct sqlite3;

/// A commit whose sync is still to come: nothing where `log` is null.
struct DBUnsynced {
    std::shared_ptr<LogSync> log;
    uint64_t ticket = 0;
};

/// How a statement ended.
struct DBOutcome {
    std::string error;          ///< why it failed; empty where it did not
    bool isChange = false;      ///< it would change what the database holds, or make changes last
    bool byMachine = false;     ///< what failed was the disk, the file or the wait for another process
    bool isFull = false;        ///< the disk is full
    bool isLocked = false;      ///< another process holds the database
    bool filesAreGone = false;  ///< the files of the database are not in their places any more
    bool wasStopped = false;    ///< its watch ended it
    DBUnsynced unsynced;        ///< what it committed
};

/// One open database file. Opened by the first statement, and by each further one until that works. Any
/// thread may use it; one statement runs at a time. Nothing is logged in here: the hook of a logger may run
/// another statement, so a failure is handed out as a text, and the caller logs it once the lock is free.
class DBHandle {
public:
    /// The statements that begin and end a transaction.
    enum class Control : uint8_t { kBegin, kCommit, kRollback };

    explicit DBHandle(const LumString& path);
    DBHandle(const DBHandle&) = delete;
    DBHandle& operator=(const DBHandle&) = delete;
    ~DBHandle();

    /// The text of a control statement, for a report.
    [[nodiscard]] static std::string_view ControlText(Control control);

    /// Runs one statement for `user`. `rows` stays null where it has none to return. False where it fails.
    /// `watch` may be null.
    [[nodiscard]] bool Run(const void* user, const LumString& sql, const DBConnection::Watch* watch,
                           std::unique_ptr<GenSqlResultBuffer>& rows, DBOutcome& outcome);
    [[nodiscard]] bool RunControl(const void* user, Control control, DBOutcome& outcome);
    /// Takes the log into the database and cuts it back to nothing; false where that cannot be done now.
    bool CutLogBack();
    [[nodiscard]] uint32_t GetOpenCount() const { return openCount_.load(std::memory_order_relaxed); }

    /// True where the transaction that is open was begun by `user`. Asked on the thread of that user, so no
    /// lock is taken: nobody else begins one in its name.
    [[nodiscard]] bool IsInTransaction(const void* user) const {
        return transactionUser_.load(std::memory_order_relaxed) == user;
    }
    /// Rolls the transaction back that `user` has left open.
    void Leave(const void* user);

    static void SetSynchronous(DBSynchronous synchronous);

private:
    struct Closer {
        void operator()(sqlite3* database) const;
    };

    [[nodiscard]] bool EnsureOpen(DBOutcome& outcome) LUM_REQUIRES(mutex_);
    /// True where the database can be used; else it is to be closed.
    [[nodiscard]] bool Open(std::string& error) LUM_REQUIRES(mutex_);
    [[nodiscard]] bool OpenFile(std::string& error) LUM_REQUIRES(mutex_);
    [[nodiscard]] bool Configure(std::string& error) LUM_REQUIRES(mutex_);
    [[nodiscard]] bool ProveSound(std::string& error) LUM_REQUIRES(mutex_);
    /// The hook that SQLite calls after each commit into the write-ahead log.
    static int OnCommit(void* handle, sqlite3* database, const char* name, int pages);
    void Close() LUM_REQUIRES(mutex_);
    /// Closes a database that is open for reading alone and can be opened for writing now: where opening it
    /// for both fails for a moment, SQLite takes what it gets, and leaves it at that. False where that is not
    /// so, and then it stays open.
    [[nodiscard]] bool LeaveReadOnly() LUM_REQUIRES(mutex_);
    /// To be asked before a change outside of a transaction, and where one begins and ends: false where the
    /// files are not in their places any more.
    [[nodiscard]] bool MayChange(DBOutcome& outcome) LUM_REQUIRES(mutex_);
    /// `shape` may be null.
    [[nodiscard]] bool RunOnce(const LumString& sql, const StatementShape* shape,
                               std::unique_ptr<GenSqlResultBuffer>& rows, DBOutcome& outcome)
        LUM_REQUIRES(mutex_);
    /// The same with a watch, which may be null.
    [[nodiscard]] bool RunWatched(const LumString& sql, const StatementShape* shape,
                                  const DBConnection::Watch* watch, std::unique_ptr<GenSqlResultBuffer>& rows,
                                  DBOutcome& outcome) LUM_REQUIRES(mutex_);
    /// Runs a statement of known shape. False where it is not to be run this way, and then nothing was done.
    [[nodiscard]] bool RunShaped(const StatementShape& shape, int& status) LUM_REQUIRES(mutex_);
    [[nodiscard]] bool RunPlain(const LumString& sql, std::unique_ptr<GenSqlResultBuffer>& rows,
                                DBOutcome& outcome) LUM_REQUIRES(mutex_);
    /// `statement` may be null where `outcome` has the reason.
    [[nodiscard]] bool RunPrepared(const OwnedStatement& statement, std::unique_ptr<GenSqlResultBuffer>& rows,
                                   DBOutcome& outcome) LUM_REQUIRES(mutex_);
    /// Keeps the statement of `control` ready; false, and the reason in `outcome`, where it cannot be
    /// prepared.
    [[nodiscard]] bool IsPrepared(Control control, DBOutcome& outcome) LUM_REQUIRES(mutex_);
    [[nodiscard]] bool RunControlOnce(Control control, DBOutcome& outcome) LUM_REQUIRES(mutex_);
    /// `sql` is null-terminated.
    [[nodiscard]] OwnedStatement Prepare(std::string_view sql, DBOutcome& outcome) LUM_REQUIRES(mutex_);
    /// Fills in what SQLite says of the call that has just failed. Always false.
    [[nodiscard]] bool Fail(DBOutcome& outcome) LUM_REQUIRES(mutex_);
    /// What is to be done after each statement of `user`.
    void Finish(const void* user, bool done, DBOutcome& outcome) LUM_REQUIRES(mutex_);
    [[nodiscard]] bool CutBack() LUM_REQUIRES(mutex_);
    /// Takes the log into the database; `mode` is SQLite's.
    [[nodiscard]] bool TakeInLog(int mode) LUM_REQUIRES(mutex_);
    [[nodiscard]] bool IsInAnyTransaction() const LUM_REQUIRES(mutex_);
    void NoteTransaction(const void* user) LUM_REQUIRES(mutex_);

    const std::string path_;

    std::atomic<uint32_t> openCount_{0};

    LumMutex mutex_;
    DatabaseFiles files_ LUM_GUARDED_BY(mutex_);
    LockPatience patience_ LUM_GUARDED_BY(mutex_);
    bool cutBackIsDue_ LUM_GUARDED_BY(mutex_) = false;
    std::unique_ptr<sqlite3, Closer> database_ LUM_GUARDED_BY(mutex_);
    std::shared_ptr<LogSync> log_ LUM_GUARDED_BY(mutex_);  // null where SQLite syncs each commit, or none
    uint64_t lastCommit_ LUM_GUARDED_BY(mutex_) = 0;       // its ticket, until an outcome takes it
    bool suspect_ LUM_GUARDED_BY(mutex_) = false;          // a sync failed, and nothing was proved since
    bool readsAlone_ LUM_GUARDED_BY(mutex_) = false;       // so it was opened, or a change was told so
    // Declared after the database: a statement is closed before its database is.
    StatementCache cache_ LUM_GUARDED_BY(mutex_);
    CountMemory counts_ LUM_GUARDED_BY(mutex_);
    std::array<OwnedStatement, 3> controls_ LUM_GUARDED_BY(mutex_);
    std::atomic<const void*> transactionUser_{nullptr};  // changed with the lock held
};
