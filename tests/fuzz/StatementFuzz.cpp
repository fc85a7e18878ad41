#include <string>
#include <string_view>

#include <sqlite3.h>

#include "FuzzTarget.h"
#include "host/database/Database.h"
#include "host/database/internal/statement/StatementShape.h"
#include "support/TempDirectory.h"

namespace {

constexpr const char* kTable =
    "CREATE TABLE t (id INTEGER PRIMARY KEY, a TEXT, b INTEGER, c FLOAT, d BOOLEAN NOT NULL DEFAULT 1, e, "
    "f TIMESTAMP CHECK (f <> 13))";
constexpr const char* kRows =
    "SELECT quote(id), quote(a), quote(b), quote(c), quote(d), quote(e), quote(f) FROM t";

/// What a statement left: whether it worked, and every cell with its type.
struct Outcome {
    bool worked = false;
    std::string rows;

    bool operator==(const Outcome&) const = default;
};

/// The pool, which lifts the literals out of a statement and binds them.
class Lifting {
public:
    Lifting() {
        DBConnectionPool::SetSynchronous(DBSynchronous::kNormal);
        pool_.SetSerialConnections(true);
        Require(pool_.SetDatabase("SQLITE23", "", directory_.At("lifting.sqlite3"), "", "", 0));
        DBConnection connection(pool_);
        Require(connection.Query(kTable) != nullptr);
    }

    [[nodiscard]] Outcome Run(std::string_view sql) {
        DBConnection connection(pool_);
        Require(connection.BeginTransaction());
        Outcome outcome;
        outcome.worked = connection.Query(LumString(sql), true) != nullptr;
        GenSqlResult* const rows = connection.Query(kRows);
        Require(rows != nullptr);
        for (uint32_t row = 0; row < rows->GetRowCount(); ++row) {
            Require(rows->SelectRow(row));
            for (uint32_t column = 0; column < rows->GetColumnCount(); ++column) {
                LumString cell;
                Require(rows->GetColumn(column, cell));
                outcome.rows.append(cell.View()).append("|");
            }
        }
        Require(connection.RollbackTransaction());
        return outcome;
    }

private:
    const TempDirectory directory_;
    DBConnectionPool pool_;
};

/// SQLite itself, which reads the statement as it stands.
class Plain {
public:
    Plain() {
        Require(sqlite3_open(":memory:", &database_) == SQLITE_OK);
        Require(Execute(kTable));
    }
    Plain(const Plain&) = delete;
    Plain& operator=(const Plain&) = delete;
    ~Plain() { sqlite3_close(database_); }

    [[nodiscard]] Outcome Run(std::string_view sql) {
        Require(Execute("BEGIN"));
        Outcome outcome;
        sqlite3_stmt* statement = nullptr;
        const auto size = static_cast<int>(sql.size());
        outcome.worked = sqlite3_prepare_v2(database_, sql.data(), size, &statement, nullptr) == SQLITE_OK &&
                         sqlite3_step(statement) == SQLITE_DONE;
        sqlite3_finalize(statement);
        Require(sqlite3_prepare_v2(database_, kRows, -1, &statement, nullptr) == SQLITE_OK);
        while (sqlite3_step(statement) == SQLITE_ROW) {
            for (int column = 0; column < sqlite3_column_count(statement); ++column) {
                outcome.rows.append(reinterpret_cast<const char*>(sqlite3_column_text(statement, column)))
                    .append("|");
            }
        }
        sqlite3_finalize(statement);
        Require(Execute("ROLLBACK"));
        return outcome;
    }

private:
    [[nodiscard]] bool Execute(const char* sql) {
        return sqlite3_exec(database_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
    }

    sqlite3* database_ = nullptr;
};

}  // namespace

/// Any bytes as a statement: one whose literals are lifted out stores exactly what its text stores, and fails
/// where its text fails. What is not recognised goes to SQLite as it stands and is none of this test's
/// business.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static Lifting lifting;
    static Plain plain;
    const std::string_view sql = FuzzInput(data, size);
    StatementShape shape;
    if (sql.find('\0') == std::string_view::npos && shape.Recognise(sql) && shape.HasPlainPrefix()) {
        Require(lifting.Run(sql) == plain.Run(sql));
    }
    return 0;
}
