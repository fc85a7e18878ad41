#include <string_view>
#include <utility>

#include "host/database/IniScripts.h"
#include "host/database/internal/DBConnectionPoolImpl.h"
#include "host/database/internal/DatabaseFigures.h"
#include "host/database/internal/statement/StatementText.h"
#include "host/ini/IniFile.h"

namespace {

constexpr std::size_t kMaxReportedCharacters = 500;

}  // namespace

class DBConnection::Impl {
public:
    explicit Impl(DBConnectionPool::Impl& pool) : pool_(pool), handle_(pool.Take()) {}
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() {
        handle_->Leave(this);
        pool_.GiveBack(std::move(handle_));
    }

    /// `watch` may be null.
    [[nodiscard]] GenSqlResult* Query(const LumString& sql, bool quiet, const Watch* watch) {
        std::unique_ptr<GenSqlResultBuffer> rows;
        DBOutcome outcome;
        const bool done = handle_->Run(this, sql, watch, rows, outcome);
        Note(outcome, done);
        CountStatement(done);
        RememberUnsynced(std::move(outcome.unsynced), pool_);
        if (!done) {
            if (!quiet && !outcome.wasStopped) {
                Report(outcome.error, sql.View());
            }
            return nullptr;
        }
        if (rows == nullptr) {
            return &noRows_;
        }
        results_.push_back(std::move(rows));
        return results_.back().get();
    }

    [[nodiscard]] bool Begin() {
        const bool done = Control(DBHandle::Control::kBegin);
        begun_ = begun_ || done;
        return done;
    }

    [[nodiscard]] bool Commit() {
        const bool done = Control(DBHandle::Control::kCommit);
        begun_ = begun_ && !done;
        return done;
    }

    [[nodiscard]] bool Rollback() {
        // SQLite ends a transaction by itself when the disk is full or fails: then it is rolled back already.
        const bool ended = begun_ && !handle_->IsInTransaction(this);
        begun_ = false;
        return ended || Control(DBHandle::Control::kRollback);
    }

    bool CutLogBack() { return handle_->CutLogBack(); }

    [[nodiscard]] LumDebug& Debug() const { return pool_.Debug(); }

    [[nodiscard]] bool HasFailedByMachine() const { return failedByMachine_; }
    void NoteUnreadScripts() { failedByMachine_ = true; }

private:
    void Note(const DBOutcome& outcome, bool done) {
        failedByMachine_ = failedByMachine_ || (!done && outcome.byMachine && !outcome.wasStopped);
        pool_.NoteChange(outcome, done);
    }

    [[nodiscard]] bool Control(DBHandle::Control control) {
        DBOutcome outcome;
        const bool done = handle_->RunControl(this, control, outcome);
        Note(outcome, done);
        RememberUnsynced(std::move(outcome.unsynced), pool_);
        if (!done) {
            Report(outcome.error, DBHandle::ControlText(control));
        }
        return done;
    }

    void Report(const std::string& error, std::string_view sql) const {
        const std::string shown = StatementWithoutValues(sql, kMaxReportedCharacters);
        Debug().ErrorWithNL("DBConnection: %S in statement: %S", std::string_view(error),
                            std::string_view(shown));
        Debug().TraceWithNL("DBConnection: the statement as it stands: %S", sql);
    }

    DBConnectionPool::Impl& pool_;
    std::shared_ptr<DBHandle> handle_;
    std::vector<std::unique_ptr<GenSqlResultBuffer>> results_;
    GenSqlNoRows noRows_;
    bool begun_ = false;
    bool failedByMachine_ = false;
};

DBConnection::DBConnection(DBConnectionPool& pool) : impl_(std::make_unique<Impl>(*pool.impl_)) {}

DBConnection::~DBConnection() = default;

GenSqlResult* DBConnection::Query(const LumString& sql, bool quiet) {
    return impl_->Query(sql, quiet, nullptr);
}

GenSqlResult* DBConnection::QueryWatched(const LumString& sql, const Watch& watch) {
    return impl_->Query(sql, false, &watch);
}

bool DBConnection::CutLogBack() {
    return impl_->CutLogBack();
}

bool DBConnection::BeginTransaction() {
    return impl_->Begin();
}

bool DBConnection::CommitTransaction() {
    return impl_->Commit();
}

bool DBConnection::RollbackTransaction() {
    return impl_->Rollback();
}

bool DBConnection::RunIniScripts(const LumString& iniPath, const LumString& section, bool once) {
    IniEntries entries;
    if (!IniFile(iniPath).ReadEntries(section, entries)) {
        impl_->NoteUnreadScripts();
        return false;
    }
    return IniScripts(*this, impl_->Debug()).Run(section, entries, once);
}

bool DBConnection::RunUpgrade(const LumString& table, const LumString& nameColumn,
                              const LumString& valueColumn, const LumString& iniPath,
                              const LumString& section, UpgradeProgress progress) {
    const UpgradeTable versions{table, nameColumn, valueColumn};
    IniEntries entries;
    if (!IniFile(iniPath).ReadEntries(section, entries)) {
        impl_->NoteUnreadScripts();
        return false;
    }
    return IniUpgrade(*this, impl_->Debug(), versions).Run(section, entries, progress);
}

bool DBConnection::HasFailedByMachine() const {
    return impl_->HasFailedByMachine();
}
