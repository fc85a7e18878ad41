#include "host/database/DBReader.h"

#include <string>

#include <sqlite3.h>

namespace {

constexpr int kBusyTimeoutMs = 5000;

/// Lets pass what reads: a statement that writes, attaches a file or changes a setting is refused.
int AllowReading(void* /*context*/, int action, const char* first, const char* /*second*/,
                 const char* /*database*/, const char* /*trigger*/) {
    const bool reads = action == SQLITE_SELECT || action == SQLITE_READ || action == SQLITE_FUNCTION ||
                       action == SQLITE_RECURSIVE;
    const bool asks = action == SQLITE_PRAGMA && first != nullptr &&
                      (std::string_view(first) == "table_info" || std::string_view(first) == "table_list");
    return reads || asks ? SQLITE_OK : SQLITE_DENY;
}

}  // namespace

struct DBReader::Impl {
    Impl() = default;
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() {
        sqlite3_finalize(statement);
        sqlite3_close(database);
    }

    bool Fail(LumString& error) const {
        error = sqlite3_errmsg(database);
        return false;
    }

    sqlite3* database = nullptr;
    sqlite3_stmt* statement = nullptr;
};

DBReader::DBReader() : impl_(std::make_unique<Impl>()) {}
DBReader::~DBReader() = default;

bool DBReader::Open(const LumString& path, LumString& error) {
    impl_ = std::make_unique<Impl>();
    const std::string name(path.View());
    if (sqlite3_open_v2(name.c_str(), &impl_->database, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
        return impl_->Fail(error);
    }
    sqlite3_busy_timeout(impl_->database, kBusyTimeoutMs);
    // A file that is not a database is found out by the first look into it.
    if (sqlite3_exec(impl_->database, "SELECT 1 FROM sqlite_master LIMIT 1; PRAGMA temp_store = memory;",
                     nullptr, nullptr, nullptr) != SQLITE_OK) {
        return impl_->Fail(error);
    }
    return true;
}

bool DBReader::DefineView(const LumString& name, const LumString& select, LumString& error) {
    const std::string sql =
        "CREATE TEMP VIEW " + std::string(name.View()) + " AS " + std::string(select.View());
    sqlite3_set_authorizer(impl_->database, nullptr, nullptr);
    return sqlite3_exec(impl_->database, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK ||
           impl_->Fail(error);
}

bool DBReader::Begin(const LumString& sql, LumString& error) {
    sqlite3_finalize(impl_->statement);
    impl_->statement = nullptr;
    sqlite3_set_authorizer(impl_->database, AllowReading, nullptr);
    const std::string_view text = sql.View();
    const char* rest = nullptr;
    const int prepared = sqlite3_prepare_v2(impl_->database, text.data(), static_cast<int>(text.size()),
                                            &impl_->statement, &rest);
    if (prepared == SQLITE_AUTH) {
        error = "the statement does something else than reading";
        return false;
    }
    if (prepared != SQLITE_OK) {
        return impl_->Fail(error);
    }
    const std::string_view left = text.substr(static_cast<std::size_t>(rest - text.data()));
    if (impl_->statement == nullptr || left.find_first_not_of(" \t\r\n;") != std::string_view::npos) {
        error = "one statement must be given, and only one";
        return false;
    }
    return true;
}

DBReader::Step DBReader::Next(LumString& error) {
    switch (sqlite3_step(impl_->statement)) {
        case SQLITE_ROW:
            return Step::kRow;
        case SQLITE_DONE:
            return Step::kEnd;
        default:
            static_cast<void>(impl_->Fail(error));
            return Step::kFailed;
    }
}

uint32_t DBReader::GetColumnCount() const {
    return static_cast<uint32_t>(sqlite3_column_count(impl_->statement));
}

std::string_view DBReader::GetColumnName(uint32_t column) const {
    const char* const name = sqlite3_column_name(impl_->statement, static_cast<int>(column));
    return name != nullptr ? name : "";
}

DBReader::Kind DBReader::GetKind(uint32_t column) const {
    switch (sqlite3_column_type(impl_->statement, static_cast<int>(column))) {
        case SQLITE_INTEGER:
            return Kind::kInteger;
        case SQLITE_FLOAT:
            return Kind::kReal;
        case SQLITE_TEXT:
            return Kind::kText;
        case SQLITE_BLOB:
            return Kind::kBlob;
        default:
            return Kind::kNull;
    }
}

int64_t DBReader::GetInteger(uint32_t column) const {
    return sqlite3_column_int64(impl_->statement, static_cast<int>(column));
}

double DBReader::GetReal(uint32_t column) const {
    return sqlite3_column_double(impl_->statement, static_cast<int>(column));
}

std::string_view DBReader::GetText(uint32_t column) const {
    const auto* const text = sqlite3_column_text(impl_->statement, static_cast<int>(column));
    const int length = sqlite3_column_bytes(impl_->statement, static_cast<int>(column));
    return text != nullptr
               ? std::string_view(reinterpret_cast<const char*>(text), static_cast<std::size_t>(length))
               : std::string_view();
}
