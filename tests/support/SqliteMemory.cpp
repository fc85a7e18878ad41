#include "support/SqliteMemory.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <stdexcept>

#include <sqlite3.h>

namespace {

/// Each block has its size before it.
constexpr std::size_t kSizeField = 16;

void* SqliteAllocate(int size) {
    try {
        auto* const block = static_cast<char*>(::operator new(static_cast<std::size_t>(size) + kSizeField));
        std::memcpy(block, &size, sizeof(size));
        return block + kSizeField;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

int SqliteSize(void* memory) {
    int size = 0;
    if (memory != nullptr) {
        std::memcpy(&size, static_cast<char*>(memory) - kSizeField, sizeof(size));
    }
    return size;
}

void SqliteFree(void* memory) {
    if (memory != nullptr) {
        ::operator delete(static_cast<char*>(memory) - kSizeField);
    }
}

void* SqliteReallocate(void* memory, int size) {
    void* const larger = SqliteAllocate(size);
    if (larger != nullptr && memory != nullptr) {
        std::memcpy(larger, memory, static_cast<std::size_t>(std::min(size, SqliteSize(memory))));
        SqliteFree(memory);
    }
    return larger;
}

int SqliteRoundUp(int size) {
    return (size + 7) & ~7;
}

}  // namespace

void LetSqliteRunOut() {
    static sqlite3_mem_methods methods{SqliteAllocate, SqliteFree,    SqliteReallocate,
                                       SqliteSize,     SqliteRoundUp, [](void*) { return SQLITE_OK; },
                                       [](void*) {},   nullptr};
    // No blocks that it keeps for itself: each is asked for.
    if (sqlite3_config(SQLITE_CONFIG_MALLOC, &methods) != SQLITE_OK ||
        sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0) != SQLITE_OK) {
        throw std::logic_error("SQLite is in use already");
    }
}
