// What the database pool costs beside SQLite's own interface: the same statements on the same table with the
// same settings, in turns, as medians.
//
//     DatabaseBench [--full]               prints the table
//     DatabaseBench --inserts pool|text N  runs N inserts and nothing else, to be counted under callgrind

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <malloc.h>
#include <sqlite3.h>

#include "BenchSupport.h"
#include "host/database/Database.h"
#include "host/log/LumDebug.h"
#include "host/thread/LumMutex.h"

namespace {

struct Sizes {
    int rounds;
    uint32_t inserts;      // in one round, normal
    uint32_t fullInserts;  // in one round, full
    uint32_t rows;         // of the result that is buffered
};

constexpr Sizes kUsual{5, 20000, 2000, 1000000};
constexpr Sizes kTiny{1, 50, 5, 500};

constexpr const char* kCreateTable =
    "CREATE TABLE Event_Bench (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_GMT_Offset INTEGER, E_DeviceId "
    "INTEGER NOT NULL, E_GroupId INTEGER NOT NULL, C_Application TEXT, C_Count INTEGER, C_Seconds FLOAT, "
    "C_Remote BOOLEAN, C_User TEXT);"
    "CREATE INDEX Ix_Event_Bench_Date ON Event_Bench (E_Date);"
    "CREATE INDEX Ix_Event_Bench_DeviceID ON Event_Bench (E_DeviceID);"
    "CREATE INDEX Ix_Event_Bench_GroupID ON Event_Bench (E_GroupID);";

constexpr const char* kSelectRows =
    "SELECT E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_Application, C_Count, C_Seconds, C_Remote, C_User "
    "FROM Event_Bench";

/// The text of the event of that number, as the module writes it.
void WriteInsert(LumString& sql, uint32_t number) {
    sql.Printf(
        "INSERT INTO Event_Bench (E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_Application, C_Count, "
        "C_Seconds, C_Remote, C_User) VALUES (%u, 7200, %u, %u, 'program-%u', %u, '%f', %u, 'user%u');",
        1700000000 + number, number % 50, number % 7, 1000 + number % 1000, number % 100000,
        static_cast<double>(number) / 8.0, number % 2, number % 1000);
}

/// SQLite as it comes, with a lock so that several threads may use it.
class TextDatabase {
public:
    TextDatabase(const std::string& path, DBSynchronous synchronous)
        : raw_(path, synchronous == DBSynchronous::kFull) {}

    void Insert(const LumString& sql) {
        const LumMutexLock lock(mutex_);
        raw_.RunOnce(sql.GetString());
    }

private:
    RawDatabase raw_;
    LumMutex mutex_;
};

/// The pool as the module uses it: a lock, a connection, a statement.
class PoolDatabase {
public:
    PoolDatabase(const std::string& path, DBSynchronous synchronous) {
        DBConnectionPool::SetSynchronous(synchronous);
        pool_.SetDebug(debug_);
        pool_.SetSerialConnections(true);
        if (!pool_.SetDatabase("SQLITE23", "", LumString(std::string_view(path)), "", "", 0)) {
            Fail("no database");
        }
    }

    void Insert(const LumString& sql) {
        const LumMutexLock lock(mutex_);
        DBConnection connection(pool_);
        if (connection.Query(sql) == nullptr) {
            Fail("an insert failed");
        }
    }

    [[nodiscard]] DBConnectionPool& Pool() { return pool_; }

private:
    LumDebug debug_{"DatabaseBench", "Benchmark of the database pool"};
    DBConnectionPool pool_;
    LumMutex mutex_;
};

template <class Database>
void InsertMany(Database& database, uint32_t count, uint32_t threads) {
    OnThreads(threads, [&database, count, threads](uint32_t first) {
        LumString sql;
        for (uint32_t i = first; i < count; i += threads) {
            WriteInsert(sql, i);
            database.Insert(sql);
        }
    });
}

void BenchInserts(const TempDirectory& scratch, const Sizes& sizes, DBSynchronous synchronous,
                  uint32_t threads) {
    const bool full = synchronous == DBSynchronous::kFull;
    const std::string name = std::string(full ? "full" : "normal") + std::to_string(threads);
    const uint32_t count = full ? sizes.fullInserts : sizes.inserts;
    for (const char* const side : {"pool", "raw"}) {
        RawDatabase((scratch / name + side), full).Run(kCreateTable);
    }
    PoolDatabase pool((scratch / name + "pool"), synchronous);
    TextDatabase raw((scratch / name + "raw"), synchronous);
    const auto [ours, floor] = Alternate(
        sizes.rounds, [&] { InsertMany(pool, count, threads); }, [&] { InsertMany(raw, count, threads); });
    const std::string work = std::string("inserts a second, ") + (full ? "full, " : "normal, ") +
                             std::to_string(threads) + (threads == 1 ? " thread" : " threads");
    const char* const target = full || threads > 1 ? ">= 0.95" : ">= 1.10";
    PrintRow(work, count / ours, count / floor, floor / ours, target);
}

/// All rows one after the other in one piece of memory, eight bytes a number, texts with their length.
class FlatArena {
public:
    explicit FlatArena(std::size_t bytes) : bytes_(std::make_unique_for_overwrite<char[]>(bytes)) {}

    void Step(sqlite3_stmt* statement) {
        std::size_t used = 0;
        const int columns = sqlite3_column_count(statement);
        while (sqlite3_step(statement) == SQLITE_ROW) {
            for (int i = 0; i < columns; ++i) {
                used += Copy(statement, i, bytes_.get() + used);
            }
        }
    }

private:
    static std::size_t Copy(sqlite3_stmt* statement, int column, char* to) {
        const int type = sqlite3_column_type(statement, column);
        if (type == SQLITE_INTEGER) {
            const int64_t number = sqlite3_column_int64(statement, column);
            std::memcpy(to, &number, sizeof(number));
            return sizeof(number);
        }
        if (type == SQLITE_FLOAT) {
            const double number = sqlite3_column_double(statement, column);
            std::memcpy(to, &number, sizeof(number));
            return sizeof(number);
        }
        const unsigned char* const text = sqlite3_column_text(statement, column);
        const auto length = static_cast<uint32_t>(sqlite3_column_bytes(statement, column));
        std::memcpy(to, &length, sizeof(length));
        std::copy_n(text, length, to + sizeof(length));
        return sizeof(length) + length;
    }

    std::unique_ptr<char[]> bytes_;
};

std::size_t AllocatedBytes() {
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

void FillTable(const std::string& path, uint32_t rows) {
    RawDatabase raw(path, false);
    raw.Run(kCreateTable);
    LumString sql;
    sql.Printf(
        "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i + 1 < %u) INSERT INTO "
        "Event_Bench SELECT NULL, 1700000000 + i, 7200, i %% 50, i %% 7, 'program-' || (1000 + i %% 1000), "
        "i %% 100000, i / 8.0, i %% 2, 'user' || (i %% 1000) FROM n",
        rows);
    raw.Run(sql.GetString());
}

void BenchResult(const TempDirectory& scratch, const Sizes& sizes) {
    const std::string path = (scratch / "rows");
    FillTable(path, sizes.rows);
    PoolDatabase pool(path, DBSynchronous::kNormal);
    RawDatabase raw(path, false);
    double bytes = 0;
    const auto buffer = [&] {
        DBConnection connection(pool.Pool());
        const std::size_t before = AllocatedBytes();
        const GenSqlResult* const result = connection.Query(kSelectRows);
        if (result == nullptr || result->GetRowCount() != sizes.rows) {
            Fail("rows are missing");
        }
        bytes = static_cast<double>(AllocatedBytes() - before);
    };
    const auto step = [&] {
        FlatArena arena(std::size_t{sizes.rows} * 128);
        sqlite3_stmt* statement = raw.Prepare(kSelectRows);
        arena.Step(statement);
        sqlite3_finalize(statement);
    };
    const auto [ours, floor] = Alternate(sizes.rounds, buffer, step);
    PrintRow("rows buffered a second, 9 columns", sizes.rows / ours, sizes.rows / floor, floor / ours,
             ">= 0.75");
    constexpr double kMostBytes = 115.0;
    PrintRow("bytes a buffered row", bytes / sizes.rows, kMostBytes, bytes / sizes.rows / kMostBytes,
             "<= 1.00");
}

int InsertOnly(std::string_view side, uint32_t count) {
    const TempDirectory scratch;
    const std::string path = (scratch / "inserts");
    RawDatabase(path, false).Run(kCreateTable);
    if (side == "pool") {
        PoolDatabase pool(path, DBSynchronous::kNormal);
        InsertMany(pool, count, 1);
    } else {
        TextDatabase text(path, DBSynchronous::kNormal);
        InsertMany(text, count, 1);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::string_view(argv[1]) == "--inserts") {
        return InsertOnly(argv[2], static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10)));
    }
    const Sizes& sizes = IsTiny(argc, argv) ? kTiny : kUsual;
    const TempDirectory scratch;
    PrintHead();
    for (const uint32_t threads : {1U, 4U}) {
        BenchInserts(scratch, sizes, DBSynchronous::kNormal, threads);
        BenchInserts(scratch, sizes, DBSynchronous::kFull, threads);
    }
    BenchResult(scratch, sizes);
    return 0;
}
