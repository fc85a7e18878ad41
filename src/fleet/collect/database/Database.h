#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// One value of a statement: bound, never part of its text. Nothing stands for NULL.
using SqlValue = std::optional<std::string>;
using SqlValues = std::vector<SqlValue>;
/// The rows of an answer; NULL reads as empty.
using SqlRows = std::vector<std::vector<std::string>>;

/// What went wrong with a statement, and what that means for who ran it.
struct SqlFailure {
    enum class Kind : uint8_t {
        kServer,  ///< the database cannot do its work at the moment, or is gone
        kRetry,   ///< the same again may well succeed: another transaction was in the way
        kLayout,  ///< a table or column is not what the caller believes
        kData,    ///< the values themselves are refused
    };
    Kind kind = Kind::kServer;
    std::string text;
};

/// `name` as a quoted SQL name that means nothing but itself.
[[nodiscard]] std::string QuotedName(std::string_view name);

/// `values` as the text of a one-dimensional SQL array.
[[nodiscard]] std::string ArrayText(const SqlValues& values);

/// Rows that go into a statement as one array a column.
class ColumnArrays {
public:
    void Add(const SqlValues& row);
    /// The columns as ArrayText gives them.
    [[nodiscard]] SqlValues Texts() const;

private:
    std::vector<SqlValues> columns_;
};

/// A connection to the database. An object belongs to one thread at a time. Every routine answers false where
/// it fails, with the reason in `failure`.
class Database {
public:
    Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database();

    /// Connects with `parameters` (key=value pairs or a postgresql:// address) and takes on `role` unless
    /// that is empty. Refused: a connection over a network that does not verify the server's certificate.
    [[nodiscard]] bool Open(const std::string& parameters, const std::string& role, SqlFailure& failure);
    void Close();
    [[nodiscard]] bool IsOpen() const;

    /// Runs one statement with $1, $2, ... bound to `values`.
    [[nodiscard]] bool Run(const std::string& statement, const SqlValues& values, SqlRows& rows,
                           SqlFailure& failure);
    [[nodiscard]] bool Run(const std::string& statement, const SqlValues& values, SqlFailure& failure);
    /// Runs several statements that bind nothing.
    [[nodiscard]] bool RunScript(const std::string& statements, SqlFailure& failure);

    /// COPY ... FROM STDIN: the statement, its data in pieces, and the end.
    [[nodiscard]] bool BeginCopy(const std::string& statement, SqlFailure& failure);
    [[nodiscard]] bool PutCopy(std::string_view data, SqlFailure& failure);
    [[nodiscard]] bool EndCopy(SqlFailure& failure);

private:
    struct Handle;

    std::unique_ptr<Handle> handle_;
};

/// A transaction that is rolled back unless it was committed.
class Transaction {
public:
    explicit Transaction(Database& database) : database_(database) {}
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction();

    [[nodiscard]] bool Begin(SqlFailure& failure);
    [[nodiscard]] bool Commit(SqlFailure& failure);

private:
    Database& database_;
    bool open_ = false;
};
