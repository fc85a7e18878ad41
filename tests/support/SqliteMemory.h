#pragma once

/// From now on SQLite takes its memory from the program's allocator, block by block, so that a MemoryFault
/// counts its blocks too. To be called before anything else of SQLite.
void LetSqliteRunOut();
