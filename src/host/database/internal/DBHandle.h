#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/database/Database.h"
#include "host/database/internal/GenSqlResultBuffer.h"
#include "host/database/internal/StatementCache.h"
#include "host/thread/LumMutex.h"

struct sqlite3;

/// One open database file. Opened by the first statement, and by each further one until that works. Any
/// thread may use it; one statement runs at a time. Nothing is logged in here: what a logger is hooked up
/// with may come back for another statement, so a failure is handed out as a text and reported once the lock
/// is free.
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

    /// Runs one statement for `user`. `rows` stays null where it has none to return. False with the reason in
    /// `error` where it fails.
    [[nodiscard]] bool Run(const void* user, const LumString& sql, std::unique_ptr<GenSqlResultBuffer>& rows,
                           std::string& error);
    [[nodiscard]] bool RunControl(const void* user, Control control, std::string& error);

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

    [[nodiscard]] bool EnsureOpen(std::string& error) LUM_REQUIRES(mutex_);
    [[nodiscard]] bool OpenFile(std::string& error) LUM_REQUIRES(mutex_);
    [[nodiscard]] bool Configure(std::string& error) LUM_REQUIRES(mutex_);
    /// Runs a statement of known shape. False where it is not to be run this way, and then nothing was done.
    [[nodiscard]] bool RunShaped(const StatementShape& shape, int& status) LUM_REQUIRES(mutex_);
    [[nodiscard]] bool RunPlain(const LumString& sql, std::unique_ptr<GenSqlResultBuffer>& rows,
                                std::string& error) LUM_REQUIRES(mutex_);
    /// `sql` is null-terminated.
    [[nodiscard]] OwnedStatement Prepare(std::string_view sql, std::string& error) LUM_REQUIRES(mutex_);
    void NoteTransaction(const void* user) LUM_REQUIRES(mutex_);

    const std::string path_;

    LumMutex mutex_;
    std::unique_ptr<sqlite3, Closer> database_ LUM_GUARDED_BY(mutex_);
    // Declared behind the database: a statement is closed before its database is.
    StatementCache cache_ LUM_GUARDED_BY(mutex_);
    std::array<OwnedStatement, 3> controls_ LUM_GUARDED_BY(mutex_);
    std::atomic<const void*> transactionUser_{nullptr};  // changed with the lock held
};
