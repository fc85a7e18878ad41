#pragma once

/// Sets SQLite up for this process, once. To be called before a database is opened.
void SetUpSqlite();
