#include "fleet/collect/database/Database.h"

#include <libpq-fe.h>

namespace {

struct FinishConnection {
    void operator()(PGconn* connection) const noexcept { PQfinish(connection); }
};
struct ClearResult {
    void operator()(PGresult* result) const noexcept { PQclear(result); }
};
struct FreeOptions {
    void operator()(PQconninfoOption* options) const noexcept { PQconninfoFree(options); }
};
using Connection = std::unique_ptr<PGconn, FinishConnection>;
using Result = std::unique_ptr<PGresult, ClearResult>;
using ConnectionOptions = std::unique_ptr<PQconninfoOption, FreeOptions>;

std::string Trimmed(const char* message) {
    std::string text(message != nullptr ? message : "");
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    return text;
}

/// Classes of the standard's error codes, by their first two letters.
SqlError::Kind KindOf(std::string_view code) {
    const std::string_view group = code.substr(0, 2);
    if (group == "40" || code == "55P03") {
        return SqlError::Kind::kRetry;
    }
    if (group == "42") {
        return SqlError::Kind::kLayout;
    }
    return group == "22" || group == "23" || group == "54" ? SqlError::Kind::kData : SqlError::Kind::kServer;
}

bool IsLocalHost(std::string_view host) {
    return host.empty() || host.front() == '/' || host.front() == '@' || host == "localhost" ||
           host == "::1" ||
           (host.starts_with("127.") && host.find_first_not_of("0123456789.") == std::string_view::npos);
}

/// Refuses `parameters` that would send rows over a network to a server that nobody has verified.
void CheckParameters(const std::string& parameters) {
    char* message = nullptr;
    const ConnectionOptions options(PQconninfoParse(parameters.c_str(), &message));
    if (options == nullptr) {
        const std::string reason = Trimmed(message);
        PQfreemem(message);
        throw SqlError(SqlError::Kind::kServer, reason);
    }
    std::string hosts;
    std::string mode;
    for (const PQconninfoOption* option = options.get(); option->keyword != nullptr; ++option) {
        const std::string_view keyword = option->keyword;
        const std::string value = option->val != nullptr ? option->val : "";
        if ((keyword == "host" || keyword == "hostaddr") && !value.empty()) {
            hosts += hosts.empty() ? value : "," + value;
        } else if (keyword == "sslmode") {
            mode = value;
        }
    }
    const bool verified = mode == "verify-full" || mode == "verify-ca";
    for (std::size_t start = 0; start <= hosts.size() && !verified;) {
        const std::size_t comma = std::min(hosts.find(',', start), hosts.size());
        if (const std::string host = hosts.substr(start, comma - start); !IsLocalHost(host)) {
            throw SqlError(SqlError::Kind::kServer,
                           "The database on " + host +
                               " would be spoken to without verifying it; give sslmode=verify-full");
        }
        start = comma + 1;
    }
}

/// Values as the library takes them; refers to `values`.
std::vector<const char*> Pointers(const SqlValues& values) {
    std::vector<const char*> pointers;
    pointers.reserve(values.size());
    for (const SqlValue& value : values) {
        pointers.push_back(value.has_value() ? value->c_str() : nullptr);
    }
    return pointers;
}

}  // namespace

std::string QuotedName(std::string_view name) {
    std::string text = "\"";
    for (const char letter : name) {
        text.append(letter == '"' ? 2 : 1, letter);
    }
    return text + "\"";
}

std::string ArrayText(const SqlValues& values) {
    std::string text = "{";
    for (const SqlValue& value : values) {
        text += text.size() > 1 ? "," : "";
        if (!value.has_value()) {
            text += "NULL";
            continue;
        }
        text += '"';
        for (const char letter : *value) {
            if (letter == '"' || letter == '\\') {
                text += '\\';
            }
            text += letter;
        }
        text += '"';
    }
    return text + "}";
}

void ColumnArrays::Add(const SqlValues& row) {
    columns_.resize(row.size());
    for (std::size_t column = 0; column < row.size(); ++column) {
        columns_[column].push_back(row[column]);
    }
}

SqlValues ColumnArrays::Texts() const {
    SqlValues texts;
    for (const SqlValues& column : columns_) {
        texts.emplace_back(ArrayText(column));
    }
    return texts;
}

struct Database::Handle {
    Connection connection;

    /// What the connection itself says went wrong.
    [[nodiscard]] SqlError Failure() const {
        return {SqlError::Kind::kServer, Trimmed(PQerrorMessage(connection.get()))};
    }

    /// Throws for a result of another status than `wanted`.
    void Check(const Result& result, ExecStatusType wanted) const {
        const ExecStatusType status = PQresultStatus(result.get());
        if (status == wanted || (wanted == PGRES_COMMAND_OK && status == PGRES_TUPLES_OK)) {
            return;
        }
        if (result == nullptr) {
            throw Failure();
        }
        const char* const code = PQresultErrorField(result.get(), PG_DIAG_SQLSTATE);
        throw SqlError(code != nullptr && PQstatus(connection.get()) == CONNECTION_OK
                           ? KindOf(code)
                           : SqlError::Kind::kServer,
                       Trimmed(PQresultErrorMessage(result.get())));
    }
};

Database::Database() : handle_(std::make_unique<Handle>()) {}
Database::~Database() = default;

void Database::Open(const std::string& parameters, const std::string& role) {
    Close();
    CheckParameters(parameters);
    // A dead server is noticed within a minute, also in the middle of a statement.
    const char* const names[] = {"dbname",           "application_name",    "connect_timeout",
                                 "keepalives_idle",  "keepalives_interval", "keepalives_count",
                                 "tcp_user_timeout", "client_encoding",     nullptr};
    const char* const values[] = {
        parameters.c_str(), "lumcollect", "10", "20", "10", "3", "60000", "UTF8", nullptr};
    constexpr int expandName = 1;
    handle_->connection.reset(PQconnectdbParams(names, values, expandName));
    PGconn* const connection = handle_->connection.get();
    try {
        if (PQstatus(connection) != CONNECTION_OK) {
            throw handle_->Failure();
        }
        // What the server has to say besides errors is of no use to a service.
        PQsetNoticeProcessor(
            connection, [](void* /*unused*/, const char* /*message*/) {}, nullptr);
        RunScript("SET TimeZone = 'UTC'");
        if (!role.empty()) {
            RunScript("SET ROLE " + QuotedName(role));
        }
    } catch (const SqlError&) {
        Close();
        throw;
    }
}

void Database::Close() {
    handle_->connection.reset();
}

bool Database::IsOpen() const {
    return handle_->connection != nullptr && PQstatus(handle_->connection.get()) == CONNECTION_OK;
}

SqlRows Database::Run(const std::string& statement, const SqlValues& values) {
    const std::vector<const char*> pointers = Pointers(values);
    const Result result(PQexecParams(handle_->connection.get(), statement.c_str(),
                                     static_cast<int>(pointers.size()), nullptr, pointers.data(), nullptr,
                                     nullptr, 0));
    handle_->Check(result, PGRES_COMMAND_OK);
    SqlRows rows;
    for (int row = 0; row < PQntuples(result.get()); ++row) {
        std::vector<std::string>& cells = rows.emplace_back();
        for (int column = 0; column < PQnfields(result.get()); ++column) {
            cells.emplace_back(PQgetvalue(result.get(), row, column));
        }
    }
    return rows;
}

void Database::RunScript(const std::string& statements) {
    handle_->Check(Result(PQexec(handle_->connection.get(), statements.c_str())), PGRES_COMMAND_OK);
}

void Database::BeginCopy(const std::string& statement) {
    handle_->Check(Result(PQexec(handle_->connection.get(), statement.c_str())), PGRES_COPY_IN);
}

void Database::PutCopy(std::string_view data) {
    if (PQputCopyData(handle_->connection.get(), data.data(), static_cast<int>(data.size())) != 1) {
        throw handle_->Failure();
    }
}

void Database::EndCopy() {
    PGconn* const connection = handle_->connection.get();
    if (PQputCopyEnd(connection, nullptr) != 1) {
        throw handle_->Failure();
    }
    const Result result(PQgetResult(connection));
    while (const Result rest{PQgetResult(connection)}) {
        // The protocol ends a command with an answer of no content.
    }
    handle_->Check(result, PGRES_COMMAND_OK);
}

Transaction::~Transaction() {
    try {
        if (open_) {
            database_.RunScript("ROLLBACK");
        }
    } catch (const SqlError&) {  // a connection that is lost has rolled back by itself
    }
}

void Transaction::Commit() {
    database_.RunScript("COMMIT");
    open_ = false;
}
