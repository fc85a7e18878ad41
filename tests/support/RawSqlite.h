#pragma once

#include <string>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "host/text/LumString.h"

/// A database opened as a foreign program opens it, with SQLite's own interface.
class RawSqlite {
public:
    explicit RawSqlite(const LumString& path) {
        EXPECT_EQ(sqlite3_open(path.GetString(), &database_), SQLITE_OK);
        sqlite3_busy_timeout(database_, 5000);
    }
    RawSqlite(const RawSqlite&) = delete;
    RawSqlite& operator=(const RawSqlite&) = delete;
    ~RawSqlite() { sqlite3_close(database_); }

    [[nodiscard]] sqlite3* Get() { return database_; }

    /// The result code of the statements.
    int Run(const std::string& sql) {
        return sqlite3_exec(database_, sql.c_str(), nullptr, nullptr, nullptr);
    }

    /// The first column of the first row as text, or SQLite's message.
    [[nodiscard]] std::string Value(const std::string& sql) {
        sqlite3_stmt* statement = nullptr;
        std::string value;
        sqlite3_prepare_v2(database_, sql.c_str(), -1, &statement, nullptr);
        if (sqlite3_step(statement) == SQLITE_ROW) {
            const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
            value = text != nullptr ? text : "NULL";
        } else {
            value = sqlite3_errmsg(database_);
        }
        sqlite3_finalize(statement);
        return value;
    }

private:
    sqlite3* database_ = nullptr;
};
