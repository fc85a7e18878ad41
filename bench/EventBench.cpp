// What storing and reading events costs, from the action's call to the database and back, beside SQLite's own
// interface: the same statements on the same table with the same settings, in turns, as medians.
//
//     EventBench [--full]                    prints the table
//     EventBench --creates module|text N [full]   creates N events, to be counted under callgrind or strace

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include "BenchSupport.h"
#include "host/container/LumContainer.h"
#include "host/core/ActionDb.h"

namespace {

struct Sizes {
    int rounds;
    uint32_t creates;      // in one round, normal
    uint32_t fullCreates;  // in one round, full
    uint32_t rows;         // of the table that is read and started on
    uint32_t models;       // of the start
    uint32_t settleSeconds;
};

constexpr Sizes kUsual{11, 10000, 2000, 1000000, 200, 5};
constexpr Sizes kTiny{1, 50, 5, 500, 3, 0};

constexpr uint32_t kPageRows = 100;
constexpr uint32_t kFirstDate = 1700000000;

/// The table that the registry makes for the model of the benchmarks.
constexpr const char* kCreateTable =
    "CREATE TABLE Event_Bench (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_GMT_Offset INTEGER, E_DeviceId "
    "INTEGER "
    "NOT NULL, E_GroupId INTEGER NOT NULL, C_Application TEXT, C_Count INTEGER, C_Remote BOOLEAN, C_Seconds "
    "FLOAT, "
    "C_User TEXT);"
    "CREATE INDEX Ix_Event_Bench_Date ON Event_Bench (E_Date);"
    "CREATE INDEX Ix_Event_Bench_DeviceID ON Event_Bench (E_DeviceID);"
    "CREATE INDEX Ix_Event_Bench_GroupID ON Event_Bench (E_GroupID);";

/// The statement that the module makes of event number `number`.
LumString InsertText(uint32_t number) {
    const auto date = static_cast<uint32_t>(std::time(nullptr));
    LumString sql;
    sql.Printf(
        "INSERT INTO Event_Bench (E_Date, E_GMT_Offset, E_DeviceId, E_GroupId, C_Application, C_Count, "
        "C_Remote, "
        "C_Seconds, C_User) VALUES (%u, 0, %u, %u, 'program-%u', %u, %u, '%f', 'user%u');",
        date, number % 50, number % 7, 1000 + number % 1000, number % 100000, number % 2,
        static_cast<double>(number) / 8.0, number % 1000);
    return sql;
}

/// The arguments of the action that creates event number `number`.
LumContainer Arguments(uint32_t number) {
    LumString application;
    application.Printf("program-%u", 1000 + number % 1000);
    LumString user;
    user.Printf("user%u", number % 1000);
    LumContainer params;
    params.SetInt32("EventDeviceId", number % 50);
    params.SetInt32("EventGroupId", number % 7);
    params.SetString("Application", application);
    params.SetInt32("Count", number % 100000);
    params.SetBool("Remote", number % 2 == 1);
    params.SetDouble("Seconds", static_cast<double>(number) / 8.0);
    params.SetString("User", user);
    LumContainer values;
    values.SetString("ModelName", "Bench");
    values.SetContainer("EventParams", std::move(params));
    LumContainer arguments;
    arguments.SetContainer("Values", std::move(values));
    return arguments;
}

template <class T>
std::vector<T> MakeAll(uint32_t count, T (*make)(uint32_t number)) {
    std::vector<T> all;
    all.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        all.push_back(make(i));
    }
    return all;
}

std::string FillStatement(uint32_t rows) {
    LumString sql;
    sql.Printf(
        "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i + 1 < %u) INSERT INTO "
        "Event_Bench SELECT "
        "NULL, %u + i, 7200, i %% 50, i %% 7, 'program-' || (1000 + i %% 1000), i %% 100000, i %% 2, i / "
        "8.0, 'user' "
        "|| (i %% 1000) FROM n",
        rows, kFirstDate);
    return sql.GetString();
}

void Create(LumContainer& arguments) {
    uint32_t status = 0;
    if (!ActionDbCallAction("EventLogManagerCreateEvent", arguments, status) || status != 0) {
        Fail("an event was not created");
    }
}

/// Waits until the module looks at the database's directory alone before an answer, as it does from a few
/// seconds after the last file was made in it: what is timed is a module that has been running for a while.
void LetFilesSettle(const Sizes& sizes) {
    std::this_thread::sleep_for(std::chrono::seconds(sizes.settleSeconds));
}

/// Raw inserts of finished texts, with the lock that threads need who share the handle.
class RawCreator {
public:
    RawCreator(const std::string& path, bool synchronousFull) : database_(path, synchronousFull) {
        database_.Run(kCreateTable);
    }

    void Create(const LumString& sql) {
        const std::lock_guard<std::mutex> lock(mutex_);
        database_.RunOnce(sql.GetString());
    }

private:
    RawDatabase database_;
    std::mutex mutex_;
};

void BenchCreates(const Sizes& sizes, bool full, uint32_t threads) {
    const TempDirectory scratch;
    const BenchModule module(full);
    module.StartWith(BenchModel("Bench"));
    RawCreator raw(scratch / "raw.sqlite3", full);
    LetFilesSettle(sizes);
    const uint32_t count = full ? sizes.fullCreates : sizes.creates;
    std::vector<LumContainer> arguments;
    const std::vector<LumString> texts = MakeAll<LumString>(count, InsertText);
    std::vector<double> ours;
    std::vector<double> floors;
    const auto run = [&](std::vector<double>& times, const std::function<void(uint32_t)>& create) {
        const std::vector<double> calls = TimeCalls(count, threads, create);
        times.insert(times.end(), calls.begin(), calls.end());
    };
    const auto [ourSeconds, floorSeconds] = Alternate(
        sizes.rounds, [&] { run(ours, [&](uint32_t i) { Create(arguments[i]); }); },
        [&] { run(floors, [&](uint32_t i) { raw.Create(texts[i]); }); },
        [&] { arguments = MakeAll<LumContainer>(count, Arguments); });
    const std::string how =
        std::string(full ? ", full, " : ", normal, ") + std::to_string(threads) + " thread(s)";
    // From so many threads on the shared syncs have to show.
    const bool shared = full && threads >= 16;
    PrintRow("creates a second" + how, count / ourSeconds, count / floorSeconds, floorSeconds / ourSeconds,
             shared                ? ">= 2.3"
             : full || threads > 1 ? ">= 0.95"
                                   : ">= 1.10");
    if (threads > 1) {
        const double our99 = Percentile99(ours) * 1e6;
        const double floor99 = Percentile99(floors) * 1e6;
        PrintRow("  99th percentile of a call, us", our99, floor99, our99 / floor99,
                 shared ? "<= 0.6" : "<= 1");
        const double longest = *std::max_element(ours.begin(), ours.end()) * 1e3;
        const double floorLongest = *std::max_element(floors.begin(), floors.end()) * 1e3;
        PrintRow("  longest call, ms", longest, floorLongest, longest / floorLongest, "<= 50 ms");
    }
}

/// Steps through a statement and copies its cells out, as any reader has to.
void ReadAll(RawDatabase& raw, const std::string& sql) {
    sqlite3_stmt* const statement = raw.Prepare(sql);
    std::string text;
    int64_t sum = 0;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            if (sqlite3_column_type(statement, i) == SQLITE_TEXT) {
                text = reinterpret_cast<const char*>(sqlite3_column_text(statement, i));
            } else {
                sum += sqlite3_column_int64(statement, i);
            }
        }
    }
    sqlite3_finalize(statement);
}

void BenchPage(const Sizes& sizes) {
    const BenchModule module(false);
    module.StartWith(BenchModel("Bench"));
    RawDatabase raw(module.Directory() / TestAgent::kDatabase, false);
    raw.Run(FillStatement(sizes.rows));
    const auto start = static_cast<int32_t>(kFirstDate + sizes.rows / 2);
    const auto ours = [&] {
        LumContainer values;
        values.SetString("ModelName", "Bench");
        values.SetInt32("StartDate", start);
        values.SetInt32("PageSize", kPageRows);
        LumContainer arguments;
        arguments.SetContainer("Values", std::move(values));
        uint32_t status = 0;
        if (!ActionDbCallAction("EventLogManagerGetEvents", arguments, status) || status != 0) {
            Fail("no events");
        }
    };
    const auto floor = [&] {
        ReadAll(
            raw,
            "SELECT E_Date, E_DeviceID, E_GroupID, C_Application, C_Count, C_Remote, C_Seconds, C_User FROM "
            "Event_Bench WHERE E_Date >= " +
                std::to_string(start) + " ORDER BY E_Date ASC LIMIT " + std::to_string(kPageRows) + ";");
        ReadAll(raw, "SELECT COUNT (*) FROM Event_Bench;");
    };
    const auto [ourSeconds, floorSeconds] = Alternate(sizes.rounds, ours, floor);
    PrintRow("page of 100 by date with the count, ms", ourSeconds * 1e3, floorSeconds * 1e3,
             ourSeconds / floorSeconds, "<= 1.2");
}

/// Runs `work` in a process of its own: the module is initialised once in the life of one.
void InChild(const std::function<void()>& work) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        work();
        std::fflush(stdout);
        _exit(0);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0) {
        Fail("a benchmark failed");
    }
}

/// Starts on a table of many rows and many models, beside the checks and the compaction that any start does.
void BenchStart(const Sizes& sizes) {
    const BenchModule module(false);
    const auto inDatabase = [&module](const std::string& sql) {
        RawDatabase(module.Directory() / TestAgent::kDatabase, false).Run(sql);
    };
    InChild([&] {
        for (uint32_t i = 1; i < sizes.models; ++i) {
            module.Drop(BenchModel("Model" + std::to_string(i)));
        }
        module.StartWith(BenchModel("Bench"));
        inDatabase(FillStatement(sizes.rows));
    });
    const auto [ourSeconds, floorSeconds] = Alternate(
        sizes.rounds, [] { InChild(BenchModule::Initialise); },
        [&] { InChild([&] { inDatabase("pragma integrity_check; vacuum; pragma integrity_check"); }); });
    PrintRow("start on the rows, ms", ourSeconds * 1e3, floorSeconds * 1e3, ourSeconds / floorSeconds,
             "<= 1.05");
    std::printf("%-48s | %14.2f | %14s | %6s | %s\n", "  beside the checks, ms",
                (ourSeconds - floorSeconds) * 1e3, "", "", "<= 50");
}

int CreateOnly(std::string_view side, uint32_t count, bool full) {
    if (side == "module") {
        const BenchModule module(full);
        module.StartWith(BenchModel("Bench"));
        for (uint32_t i = 0; i < count; ++i) {
            LumContainer arguments = Arguments(i);
            Create(arguments);
        }
    } else {
        const TempDirectory scratch;
        RawCreator raw(scratch / "raw.sqlite3", full);
        for (uint32_t i = 0; i < count; ++i) {
            raw.Create(InsertText(i));
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 4 && std::string_view(argv[1]) == "--creates") {
        return CreateOnly(argv[2], static_cast<uint32_t>(std::strtoul(argv[3], nullptr, 10)),
                          argc > 4 && std::string_view(argv[4]) == "full");
    }
    const Sizes& sizes = IsTiny(argc, argv) ? kTiny : kUsual;
    PrintHead();
    for (const uint32_t threads : {1U, 4U}) {
        for (const bool full : {false, true}) {
            InChild([&] { BenchCreates(sizes, full, threads); });
        }
    }
    InChild([&] { BenchCreates(sizes, true, 16); });
    InChild([&] { BenchPage(sizes); });
    BenchStart(sizes);
    return 0;
}
