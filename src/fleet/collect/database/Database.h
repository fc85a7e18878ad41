#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// One value of a statement: bound, never part of its text. Nothing stands for NULL.
using SqlValue = std::optional<std::string>;
using SqlValues = std::vector<SqlValue>;
/// The rows of an answer; NULL reads as empty.
using SqlRows = std::vector<std::vector<std::string>>;

/// What went wrong with a statement, and what that means for who ran it.
class SqlError : public std::runtime_error {
public:
    enum class Kind : uint8_t {
        kServer,  ///< the database cannot do its work at the moment, or is gone
        kRetry,   ///< the same again may well succeed: another transaction was in the way
        kLayout,  ///< a table or column is not what the caller believes
        kData,    ///< the values themselves are refused
    };

    SqlError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}

    [[nodiscard]] Kind GetKind() const { return kind_; }

private:
    Kind kind_;
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

/// A connection to the database. An object belongs to one thread at a time. What fails throws an SqlError.
class Database {
public:
    Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database();

    /// Connects with `parameters` (key=value pairs or a postgresql:// address) and takes on `role` unless
    /// that is empty. Refused: a connection over a network that does not verify the server's certificate.
    void Open(const std::string& parameters, const std::string& role);
    void Close();
    [[nodiscard]] bool IsOpen() const;

    /// Runs one statement with $1, $2, ... bound to `values`.
    SqlRows Run(const std::string& statement, const SqlValues& values = {});
    /// Runs several statements that bind nothing.
    void RunScript(const std::string& statements);

    /// COPY ... FROM STDIN: the statement, its data in pieces, and the end.
    void BeginCopy(const std::string& statement);
    void PutCopy(std::string_view data);
    void EndCopy();

private:
    struct Handle;

    std::unique_ptr<Handle> handle_;
};

/// A transaction that is rolled back unless it was committed.
class Transaction {
public:
    explicit Transaction(Database& database) : database_(database) { database_.RunScript("BEGIN"); }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction();

    void Commit();

private:
    Database& database_;
    bool open_ = true;
};
