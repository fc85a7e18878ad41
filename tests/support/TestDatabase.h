#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "host/database/Database.h"
#include "host/log/LumDebug.h"
#include "support/LogReader.h"
#include "support/TempDirectory.h"

/// A pool on a database file of its own, with a logger named "Test" whose lines can be read back.
class TestDatabase {
public:
    explicit TestDatabase(bool serial = true) {
        debug_.SetContext(&lines_.Context());
        pool_.SetDebug(debug_);
        pool_.SetSerialConnections(serial);
        Select(directory_.At("test.sqlite3"));
    }
    TestDatabase(const TestDatabase&) = delete;
    TestDatabase& operator=(const TestDatabase&) = delete;
    ~TestDatabase() = default;

    void Select(const LumString& path) {
        path_ = path;
        EXPECT_TRUE(pool_.SetDatabase("SQLITE23", "", path, "", "", 0));
    }

    [[nodiscard]] DBConnectionPool& Pool() { return pool_; }
    [[nodiscard]] LumDebug& Debug() { return debug_; }
    [[nodiscard]] const TempDirectory& Directory() const { return directory_; }
    [[nodiscard]] const LumString& Path() const { return path_; }
    /// What was said, without the traces, which repeat a failed statement with its values.
    [[nodiscard]] std::vector<std::string> Lines() const {
        std::vector<std::string> lines = lines_.Said();
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("trace "); });
        return lines;
    }

    /// Runs a statement on a connection of its own; true where it worked.
    bool Run(const LumString& sql) {
        DBConnection connection(pool_);
        return connection.Query(sql) != nullptr;
    }

    /// What a statement returns, as SQLite writes it: a|b for a row, one line a row; "failed" where it fails.
    [[nodiscard]] std::string Rows(const LumString& sql) {
        DBConnection connection(pool_);
        return Rows(connection.Query(sql));
    }

    [[nodiscard]] static std::string Rows(GenSqlResult* result) {
        if (result == nullptr) {
            return "failed";
        }
        std::string text;
        for (uint32_t row = 0; row < result->GetRowCount(); ++row) {
            EXPECT_TRUE(result->SelectRow(row));
            for (uint32_t column = 0; column < result->GetColumnCount(); ++column) {
                LumString cell;
                EXPECT_TRUE(result->GetColumn(column, cell));
                text.append(column > 0 ? "|" : row > 0 ? "\n" : "").append(cell.View());
            }
        }
        return text;
    }

private:
    TempDirectory directory_;
    LogLines lines_;
    LumDebug debug_{"Test", "Logger of a test"};
    LumString path_;
    DBConnectionPool pool_;
};
