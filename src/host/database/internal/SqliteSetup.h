#pragma once

#include <string>

struct sqlite3;

/// Sets SQLite up for this process, once. To be called before a database is opened.
void SetUpSqlite();

/// Runs a statement that answers one value at most. False, with the reason, where it fails.
[[nodiscard]] bool AskSqlite(sqlite3* database, const char* sql, std::string& answer, std::string& error);

/// The same for a setting of a database, which counts as done on a file that may only be read: that is still
/// worth reading, and writing to it says what is wrong.
[[nodiscard]] bool SetSqlite(sqlite3* database, const char* sql, std::string& answer, std::string& error);
[[nodiscard]] bool SetSqlite(sqlite3* database, const char* sql, std::string& error);
