#include "host/database/internal/DBHandle.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <iterator>
#include <new>
#include <string_view>
#include <utility>

#include <sqlite3.h>

#include "host/database/internal/SqliteSetup.h"
#include "host/database/internal/statement/WatchedStatement.h"

namespace {

/// After so many pages the log is taken into the database. SQLite would do so after 1000, and each time all
/// threads that create events wait for its syncs.
constexpr int kTakeInLogPages = 2500;

/// True for what reads alone; statements that begin and end transactions do not count as changes, either.
bool IsSelect(std::string_view sql) {
    return sql.starts_with("SELECT ");
}

bool IsBlankTail(std::string_view tail) {
    return tail.find_first_not_of(" \t\n\r\f") == std::string_view::npos;
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

/// True where the disk, the file or another process is to blame, rather than what the statement says.
bool IsOfMachine(int code) {
    constexpr int kCodes[] = {SQLITE_FULL,    SQLITE_IOERR,  SQLITE_CANTOPEN, SQLITE_READONLY,
                              SQLITE_CORRUPT, SQLITE_NOTADB, SQLITE_PROTOCOL, SQLITE_PERM,
                              SQLITE_BUSY,    SQLITE_NOMEM};
    return std::find(std::begin(kCodes), std::end(kCodes), code) != std::end(kCodes);
}

}  // namespace

void DBHandle::Closer::operator()(sqlite3* database) const {
    sqlite3_close(database);
}

DBHandle::DBHandle(const LumString& path) : path_(FilePath(path)), files_(path_) {}

DBHandle::~DBHandle() {
    const LumMutexLock lock(mutex_);
    const std::shared_ptr<LogSync> log = log_;
    Close();
    if (log != nullptr) {
        log->Forget();
    }
}

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

bool DBHandle::Run(const void* user, const LumString& sql, const DBConnection::Watch* watch,
                   std::unique_ptr<GenSqlResultBuffer>& rows, DBOutcome& outcome) {
    const std::string_view text = sql.View();
    if (text.find('\0') != std::string_view::npos) {
        outcome.error = "null byte";
        return false;
    }
    if (text.size() >= INT_MAX) {
        outcome.error = "text too long";
        return false;
    }
    StatementShape shape;
    const bool shaped = shape.Recognise(text);
    const LumMutexLock lock(mutex_);
    if (!EnsureOpen(outcome)) {
        return false;
    }
    bool done = RunWatched(sql, shaped ? &shape : nullptr, watch, rows, outcome);
    // A log that outgrew its use may be what fills the disk.
    if (!done && shaped && outcome.isFull && !IsInAnyTransaction() && CutBack()) {
        outcome = {};
        done = RunOnce(sql, &shape, rows, outcome);
    }
    if (!done && !outcome.filesAreGone && LeaveReadOnly()) {
        outcome = {};
        done = EnsureOpen(outcome) && RunWatched(sql, shaped ? &shape : nullptr, watch, rows, outcome);
    }
    Finish(user, done, outcome);
    return done;
}

bool DBHandle::RunWatched(const LumString& sql, const StatementShape* shape, const DBConnection::Watch* watch,
                          std::unique_ptr<GenSqlResultBuffer>& rows, DBOutcome& outcome) {
    WatchedStatement watched(database_.get(), watch);
    const bool done = RunOnce(sql, shape, rows, outcome);
    outcome.wasStopped = watched.WasStopped();
    return done;
}

bool DBHandle::RunOnce(const LumString& sql, const StatementShape* shape,
                       std::unique_ptr<GenSqlResultBuffer>& rows, DBOutcome& outcome) {
    if (shape == nullptr) {
        return RunPlain(sql, rows, outcome);
    }
    if (!IsInAnyTransaction() && !MayChange(outcome)) {
        return false;
    }
    outcome.isChange = true;
    int status = SQLITE_DONE;
    if (!RunShaped(*shape, status)) {
        return RunPlain(sql, rows, outcome);
    }
    return status == SQLITE_DONE || Fail(outcome);
}

bool DBHandle::IsInAnyTransaction() const {
    return sqlite3_get_autocommit(database_.get()) == 0;
}

bool DBHandle::MayChange(DBOutcome& outcome) {
    outcome.isChange = true;
    if (files_.AreInPlace()) {
        return true;
    }
    outcome.error = "the database '" + path_ + "' was removed or replaced while it was in use";
    outcome.byMachine = true;
    outcome.filesAreGone = true;
    return false;
}

bool DBHandle::Fail(DBOutcome& outcome) {
    outcome.error = sqlite3_errmsg(database_.get());
    const int code = sqlite3_errcode(database_.get());
    outcome.isFull = code == SQLITE_FULL;
    outcome.isLocked = code == SQLITE_BUSY;
    outcome.byMachine = IsOfMachine(code);
    readsAlone_ = readsAlone_ || code == SQLITE_READONLY;
    return false;
}

void DBHandle::Finish(const void* user, bool done, DBOutcome& outcome) {
    if (lastCommit_ != 0) {
        outcome.unsynced = {log_, std::exchange(lastCommit_, 0)};
    }
    if (outcome.filesAreGone) {
        // What lies in the log belongs to the database that was open, wherever that is now, and not to the
        // one that may have taken its place.
        static_cast<void>(CutBack());
        Close();
        return;
    }
    if (outcome.isChange && (done || outcome.isLocked)) {
        patience_.NoteEnd(outcome.isLocked);
    }
    NoteTransaction(user);
    cutBackIsDue_ = cutBackIsDue_ || outcome.isFull;
    if (cutBackIsDue_ && !IsInAnyTransaction()) {
        cutBackIsDue_ = false;
        static_cast<void>(CutBack());  // the next change that finds the disk full has it done again
    }
}

bool DBHandle::CutLogBack() {
    const LumMutexLock lock(mutex_);
    DBOutcome outcome;
    return EnsureOpen(outcome) && CutBack();
}

bool DBHandle::CutBack() {
    return TakeInLog(SQLITE_CHECKPOINT_TRUNCATE);
}

bool DBHandle::TakeInLog(int mode) {
    const int status = sqlite3_wal_checkpoint_v2(database_.get(), nullptr, mode, nullptr, nullptr);
    // The system tells a failed sync once. A later one of the same log could not be trusted.
    if (status == SQLITE_IOERR && log_ != nullptr) {
        log_->NoteFailure(sqlite3_errmsg(database_.get()));
    }
    return status == SQLITE_OK;
}

int DBHandle::OnCommit(void* handle, sqlite3* database, const char* /*name*/,
                       int pages) LUM_NO_THREAD_SAFETY_ANALYSIS {
    auto* const self = static_cast<DBHandle*>(handle);
    if (self->log_ != nullptr) {
        self->lastCommit_ = self->log_->NoteCommit(database);
    }
    if (pages >= kTakeInLogPages) {
        static_cast<void>(self->TakeInLog(SQLITE_CHECKPOINT_PASSIVE));  // a later commit does it
    }
    return SQLITE_OK;
}

bool DBHandle::RunShaped(const StatementShape& shape, int& status) {
    counts_.Forget();
    sqlite3_stmt* const statement = cache_.Get(database_.get(), shape);
    if (statement == nullptr || !Bind(statement, shape)) {
        return false;
    }
    const StatementReset reset(statement);
    status = sqlite3_step(statement);
    return true;
}

bool DBHandle::RunPlain(const LumString& sql, std::unique_ptr<GenSqlResultBuffer>& rows, DBOutcome& outcome) {
    const std::string recalled = counts_.Recall(database_.get(), sql.View());
    const bool done = RunPrepared(Prepare(recalled.empty() ? sql.View() : recalled, outcome), rows, outcome);
    if (!done || outcome.isChange || !IsSelect(sql.View())) {
        counts_.Forget();
    } else if (recalled.empty()) {
        counts_.Note(sql.View(), *rows);
    }
    return done;
}

bool DBHandle::RunPrepared(const OwnedStatement& statement, std::unique_ptr<GenSqlResultBuffer>& rows,
                           DBOutcome& outcome) {
    if (statement == nullptr) {
        return false;
    }
    outcome.isChange = sqlite3_stmt_readonly(statement.get()) == 0;
    if (outcome.isChange && !IsInAnyTransaction() && !MayChange(outcome)) {
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
        static_cast<void>(Fail(outcome));
        if (status == SQLITE_ROW) {
            outcome.error = sqlite3_errstr(SQLITE_NOMEM);
        }
    } catch (const std::bad_alloc&) {
        outcome.error = sqlite3_errstr(SQLITE_NOMEM);
    }
    rows.reset();
    return false;
}

OwnedStatement DBHandle::Prepare(std::string_view sql, DBOutcome& outcome) {
    sqlite3_stmt* prepared = nullptr;
    const char* tail = nullptr;
    const int size = static_cast<int>(sql.size()) + 1;
    if (sqlite3_prepare_v2(database_.get(), sql.data(), size, &prepared, &tail) != SQLITE_OK) {
        static_cast<void>(Fail(outcome));
        return nullptr;
    }
    OwnedStatement statement(prepared);
    if (statement == nullptr) {
        outcome.error = "no statement";
        return nullptr;
    }
    if (!IsBlankTail(tail)) {
        outcome.error = "more than one statement";
        return nullptr;
    }
    return statement;
}

bool DBHandle::RunControl(const void* user, Control control, DBOutcome& outcome) {
    const LumMutexLock lock(mutex_);
    if (!EnsureOpen(outcome)) {
        return false;
    }
    bool done = RunControlOnce(control, outcome);
    if (!done && !outcome.filesAreGone && LeaveReadOnly()) {
        outcome = {};
        done = EnsureOpen(outcome) && RunControlOnce(control, outcome);
    }
    Finish(user, done, outcome);
    return done;
}

bool DBHandle::IsPrepared(Control control, DBOutcome& outcome) {
    OwnedStatement& statement = controls_[static_cast<std::size_t>(control)];
    if (statement == nullptr) {
        statement = Prepare(ControlText(control), outcome);
    }
    return statement != nullptr;
}

bool DBHandle::RunControlOnce(Control control, DBOutcome& outcome) {
    // What begins must be able to end: for a rollback there may be no memory when it is needed.
    if (control == Control::kBegin && !IsPrepared(Control::kRollback, outcome)) {
        return false;
    }
    if (!IsPrepared(control, outcome) || (control != Control::kRollback && !MayChange(outcome))) {
        return false;
    }
    counts_.Forget();
    const OwnedStatement& statement = controls_[static_cast<std::size_t>(control)];
    const StatementReset reset(statement.get());
    return sqlite3_step(statement.get()) == SQLITE_DONE || Fail(outcome);
}

void DBHandle::NoteTransaction(const void* user) {
    if (!IsInAnyTransaction()) {
        transactionUser_.store(nullptr, std::memory_order_relaxed);
    } else if (IsInTransaction(nullptr)) {
        transactionUser_.store(user, std::memory_order_relaxed);
    }
}

void DBHandle::Leave(const void* user) {
    if (IsInTransaction(user)) {
        DBOutcome outcome;
        try {
            // SQLite rolls back by itself whatever a failure here would leave.
            static_cast<void>(RunControl(user, Control::kRollback, outcome));
        } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): nobody could be told
        }
    }
}
