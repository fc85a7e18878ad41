#include "host/database/internal/SqliteSetup.h"

#include <cerrno>
#include <mutex>

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/mman.h>

namespace {

/// Maps a part of the log's index once all of it has its place on the disk. SQLite writes one byte in 4096
/// before it maps a part, which leaves holes where blocks are smaller, and a write to a hole on a full disk
/// ends the process.
void* MapWithRoom(void* address, std::size_t length, int protection, int flags, int file, off_t offset) {
    if ((protection & PROT_WRITE) != 0 && file >= 0 &&
        fallocate(file, 0, offset, static_cast<off_t>(length)) != 0 && errno != EOPNOTSUPP) {
        return MAP_FAILED;
    }
    return mmap(address, length, protection, flags, file, offset);
}

int NoteText(void* text, int columns, char** values, char** /*names*/) {
    if (columns > 0 && values[0] != nullptr) {
        *static_cast<std::string*>(text) = values[0];
    }
    return 0;
}

}  // namespace

void SetUpSqlite() {
    static std::once_flag once;
    std::call_once(once, [] {
        // SQLite's count of its memory costs every allocation a lock, and nobody reads it.
        sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
        sqlite3_vfs* const files = sqlite3_vfs_find("unix");
        files->xSetSystemCall(files, "mmap", reinterpret_cast<sqlite3_syscall_ptr>(&MapWithRoom));
    });
}

bool AskSqlite(sqlite3* database, const char* sql, std::string& answer, std::string& error) {
    const int status = sqlite3_exec(database, sql, NoteText, &answer, nullptr);
    if (status != SQLITE_OK) {
        error = sqlite3_errmsg(database);
    }
    return status == SQLITE_OK;
}

bool SetSqlite(sqlite3* database, const char* sql, std::string& answer, std::string& error) {
    return AskSqlite(database, sql, answer, error) || sqlite3_errcode(database) == SQLITE_READONLY;
}

bool SetSqlite(sqlite3* database, const char* sql, std::string& error) {
    std::string answer;
    return SetSqlite(database, sql, answer, error);
}
