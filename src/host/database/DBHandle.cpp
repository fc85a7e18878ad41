#include "host/database/internal/DBHandle.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <mutex>
#include <new>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// What the write-ahead log is cut back to once it has grown beyond it: a vacuum writes the whole database
/// into it.
constexpr const char* kLimitLog = "PRAGMA journal_size_limit = 16777216";
constexpr const char* kUseLog = "PRAGMA journal_mode = WAL";
/// After so many pages the log is taken into the database. SQLite would do so after 1000, and each time all
/// threads that create events wait for its syncs.
constexpr const char* kTakeInLog = "PRAGMA wal_autocheckpoint = 2500";

std::atomic<DBSynchronous> wantedSynchronous{DBSynchronous::kFull};

/// SQLite's count of its memory costs every allocation a lock, and nobody reads it.
void SetUpSqliteOnce() {
    static std::once_flag once;
    std::call_once(once, [] { sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0); });
}

bool IsBlankTail(std::string_view tail) {
    return tail.find_first_not_of(" \t\n\r\f") == std::string_view::npos;
}

std::string SystemReason(int error) {
    return std::generic_category().message(error);
}

/// Makes an empty file that its owner alone may read, and where there is a file sees that it is a regular
/// one: SQLite would give a new one the mode of the process, and a pipe could hold it for ever.
bool PrepareFile(const std::string& path, std::string& reason) {
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file >= 0) {
        close(file);
        return true;
    }
    struct stat status {};
    if (errno != EEXIST || stat(path.c_str(), &status) != 0) {
        reason = SystemReason(errno);
        return false;
    }
    if (S_ISDIR(status.st_mode)) {
        reason = SystemReason(EISDIR);
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        reason = "Not a regular file";
        return false;
    }
    return true;
}

/// A path that SQLite takes for one: relative names could mean a database in memory or an address.
std::string FilePath(const LumString& path) {
    const std::string_view text = path.View();
    return text.empty() || text.front() == '/' ? std::string(text) : "./" + std::string(text);
}

/// Puts a statement back when it has been used, so that it holds no lock on the database.
class StatementReset {
public:
    explicit StatementReset(sqlite3_stmt* statement) : statement_(statement) {}
    StatementReset(const StatementReset&) = delete;
    StatementReset& operator=(const StatementReset&) = delete;
    ~StatementReset() { sqlite3_reset(statement_); }

private:
    sqlite3_stmt* const statement_;
};

bool Bind(sqlite3_stmt* statement, const StatementShape& shape) {
    for (std::size_t i = 0; i < shape.Count(); ++i) {
        const StatementLiteral& literal = shape.Literal(i);
        const int place = static_cast<int>(i) + 1;
        // The text outlives the step, and the next user of the statement binds all of its parameters anew.
        const int status = literal.text != nullptr
                               ? sqlite3_bind_text(statement, place, literal.text,
                                                   static_cast<int>(literal.length), SQLITE_STATIC)
                               : sqlite3_bind_int64(statement, place, literal.number);
        if (status != SQLITE_OK) {
            return false;
        }
    }
    return true;
}

}  // namespace

void DBHandle::Closer::operator()(sqlite3* database) const {
    sqlite3_close(database);
}

DBHandle::DBHandle(const LumString& path) : path_(FilePath(path)) {}

DBHandle::~DBHandle() = default;

std::string_view DBHandle::ControlText(Control control) {
    switch (control) {
        case Control::kCommit:
            return "COMMIT";
        case Control::kRollback:
            return "ROLLBACK";
        default:
            // Writing is asked for at once: a transaction that reads first could not write any more after
            // another process has, however long it waits.
            return "BEGIN IMMEDIATE";
    }
}

void DBHandle::SetSynchronous(DBSynchronous synchronous) {
    wantedSynchronous.store(synchronous, std::memory_order_relaxed);
}

bool DBHandle::Run(const void* user, const LumString& sql, std::unique_ptr<GenSqlResultBuffer>& rows,
                   std::string& error) {
    const std::string_view text = sql.View();
    if (text.find('\0') != std::string_view::npos) {
        error = "null byte";
        return false;
    }
    if (text.size() >= INT_MAX) {
        error = "text too long";
        return false;
    }
    StatementShape shape;
    const bool shaped = shape.Recognise(text);
    const LumMutexLock lock(mutex_);
    if (!EnsureOpen(error)) {
        return false;
    }
    int status = SQLITE_DONE;
    if (shaped && RunShaped(shape, status)) {
        if (status == SQLITE_DONE) {
            return true;
        }
        error = sqlite3_errmsg(database_.get());
        NoteTransaction(user);
        return false;
    }
    const bool done = RunPlain(sql, rows, error);
    NoteTransaction(user);
    return done;
}

bool DBHandle::RunShaped(const StatementShape& shape, int& status) {
    sqlite3_stmt* const statement = cache_.Get(database_.get(), shape);
    if (statement == nullptr || !Bind(statement, shape)) {
        return false;
    }
    const StatementReset reset(statement);
    status = sqlite3_step(statement);
    return true;
}

bool DBHandle::RunPlain(const LumString& sql, std::unique_ptr<GenSqlResultBuffer>& rows, std::string& error) {
    const OwnedStatement statement = Prepare(sql.View(), error);
    if (statement == nullptr) {
        return false;
    }
    try {
        if (sqlite3_column_count(statement.get()) > 0) {
            rows = std::make_unique<GenSqlResultBuffer>(statement.get());
        }
        int status = sqlite3_step(statement.get());
        while (status == SQLITE_ROW && rows->AppendRow(statement.get())) {
            status = sqlite3_step(statement.get());
        }
        if (status == SQLITE_DONE) {
            return true;
        }
        error = status == SQLITE_ROW ? sqlite3_errstr(SQLITE_NOMEM) : sqlite3_errmsg(database_.get());
    } catch (const std::bad_alloc&) {
        error = sqlite3_errstr(SQLITE_NOMEM);
    }
    rows.reset();
    return false;
}

OwnedStatement DBHandle::Prepare(std::string_view sql, std::string& error) {
    sqlite3_stmt* prepared = nullptr;
    const char* tail = nullptr;
    const int size = static_cast<int>(sql.size()) + 1;
    if (sqlite3_prepare_v2(database_.get(), sql.data(), size, &prepared, &tail) != SQLITE_OK) {
        error = sqlite3_errmsg(database_.get());
        return nullptr;
    }
    OwnedStatement statement(prepared);
    if (statement == nullptr) {
        error = "no statement";
        return nullptr;
    }
    if (!IsBlankTail(tail)) {
        error = "more than one statement";
        return nullptr;
    }
    return statement;
}

bool DBHandle::RunControl(const void* user, Control control, std::string& error) {
    const LumMutexLock lock(mutex_);
    if (!EnsureOpen(error)) {
        return false;
    }
    OwnedStatement& statement = controls_[static_cast<std::size_t>(control)];
    if (statement == nullptr) {
        statement = Prepare(ControlText(control), error);
    }
    if (statement == nullptr) {
        return false;
    }
    const StatementReset reset(statement.get());
    const bool done = sqlite3_step(statement.get()) == SQLITE_DONE;
    if (!done) {
        error = sqlite3_errmsg(database_.get());
    }
    NoteTransaction(user);
    return done;
}

void DBHandle::NoteTransaction(const void* user) {
    if (sqlite3_get_autocommit(database_.get()) != 0) {
        transactionUser_.store(nullptr, std::memory_order_relaxed);
    } else if (IsInTransaction(nullptr)) {
        transactionUser_.store(user, std::memory_order_relaxed);
    }
}

void DBHandle::Leave(const void* user) {
    if (IsInTransaction(user)) {
        std::string error;
        // SQLite rolls back by itself whatever a failure here would leave.
        static_cast<void>(RunControl(user, Control::kRollback, error));
    }
}

bool DBHandle::EnsureOpen(std::string& error) {
    if (database_ != nullptr) {
        return true;
    }
    if (path_.empty()) {
        error = "no database is selected";
        return false;
    }
    std::string reason;
    if (OpenFile(reason) && Configure(reason)) {
        return true;
    }
    error = "cannot open database '" + path_ + "': " + reason;
    database_.reset();
    return false;
}

bool DBHandle::OpenFile(std::string& error) {
    if (!PrepareFile(path_, error)) {
        return false;
    }
    SetUpSqliteOnce();
    sqlite3* opened = nullptr;
    const int status =
        sqlite3_open_v2(path_.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    database_.reset(opened);
    if (status != SQLITE_OK) {
        error = opened != nullptr ? sqlite3_errmsg(opened) : sqlite3_errstr(status);
        return false;
    }
    return true;
}

bool DBHandle::Configure(std::string& error) {
    sqlite3* const database = database_.get();
    sqlite3_busy_timeout(database, DBConnectionPool::kBusyTimeoutMs);
    const bool full = wantedSynchronous.load(std::memory_order_relaxed) == DBSynchronous::kFull;
    for (const char* const setting : {kUseLog, kLimitLog, kTakeInLog,
                                      full ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL"}) {
        const int status = sqlite3_exec(database, setting, nullptr, nullptr, nullptr);
        // A file that may only be read is still worth reading; writing to it says what is wrong.
        if (status != SQLITE_OK && status != SQLITE_READONLY) {
            error = sqlite3_errmsg(database);
            return false;
        }
    }
    return true;
}
