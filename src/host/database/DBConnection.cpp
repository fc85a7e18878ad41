#include <string_view>
#include <utility>

#include "host/database/IniScripts.h"
#include "host/database/internal/DBConnectionPoolImpl.h"
#include "host/text/LumUtf8.h"

namespace {

constexpr std::size_t kMaxReportedCharacters = 500;

/// The start of a statement, as much of it as a log line takes.
std::string_view Reported(std::string_view sql) {
    std::size_t at = 0;
    for (std::size_t characters = 0; characters < kMaxReportedCharacters && at < sql.size(); ++characters) {
        LumNextUtf8(sql, at);
    }
    return sql.substr(0, at);
}

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

    [[nodiscard]] GenSqlResult* Query(const LumString& sql, bool quiet) {
        std::unique_ptr<GenSqlResultBuffer> rows;
        std::string error;
        if (!handle_->Run(this, sql, rows, error)) {
            if (!quiet) {
                Report(error, sql.View());
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

    [[nodiscard]] LumDebug& Debug() const { return pool_.Debug(); }

private:
    [[nodiscard]] bool Control(DBHandle::Control control) {
        std::string error;
        if (!handle_->RunControl(this, control, error)) {
            Report(error, DBHandle::ControlText(control));
            return false;
        }
        return true;
    }

    void Report(const std::string& error, std::string_view sql) const {
        Debug().ErrorWithNL("DBConnection: %S in statement: %S", std::string_view(error), Reported(sql));
    }

    DBConnectionPool::Impl& pool_;
    std::shared_ptr<DBHandle> handle_;
    std::vector<std::unique_ptr<GenSqlResultBuffer>> results_;
    GenSqlNoRows noRows_;
    bool begun_ = false;
};

DBConnection::DBConnection(DBConnectionPool& pool) : impl_(std::make_unique<Impl>(*pool.impl_)) {}

DBConnection::~DBConnection() = default;

GenSqlResult* DBConnection::Query(const LumString& sql, bool quiet) {
    return impl_->Query(sql, quiet);
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
    return IniScripts(*this, impl_->Debug()).Run(iniPath, section, once);
}

bool DBConnection::RunUpgrade(const LumString& table, const LumString& nameColumn,
                              const LumString& valueColumn, const LumString& iniPath,
                              const LumString& section, UpgradeProgress progress) {
    const UpgradeTable versions{table, nameColumn, valueColumn};
    return IniUpgrade(*this, impl_->Debug(), versions).Run(iniPath, section, progress);
}
