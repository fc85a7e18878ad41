#include "BenchSupport.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <thread>

#include <malloc.h>

#include "host/core/LumAgent.h"
#include "host/database/Database.h"
#include "host/log/LumDebug.h"

namespace {

/// A figure of /proc/self/status, in bytes.
double StatusBytes(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        double kilobytes = 0;
        if (word == name && status >> kilobytes) {
            return kilobytes * 1024;
        }
        status.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    Fail("no " + name + " in /proc/self/status");
}

}  // namespace

void Fail(const std::string& what) {
    std::fprintf(stderr, "benchmark: %s\n", what.c_str());
    std::exit(1);
}

bool IsTiny(int argc, char** argv) {
    return std::none_of(argv + 1, argv + argc,
                        [](const char* argument) { return std::string_view(argument) == "--full"; });
}

RawDatabase::RawDatabase(const std::string& path, bool synchronousFull)
    : Sqlite(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX) {
    Run("PRAGMA journal_mode = WAL");
    Run(synchronousFull ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
}

sqlite3_stmt* RawDatabase::Prepare(const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(Get(), sql.c_str(), static_cast<int>(sql.size()), &statement, nullptr) !=
        SQLITE_OK) {
        Fail(sqlite3_errmsg(Get()));
    }
    return statement;
}

void RawDatabase::RunOnce(const std::string& sql) {
    sqlite3_stmt* const statement = Prepare(sql);
    if (sqlite3_step(statement) != SQLITE_DONE) {
        Fail(sqlite3_errmsg(Get()));
    }
    sqlite3_finalize(statement);
}

ModelText BenchModel(const std::string& name) {
    return {.name = name,
            .params = {{.name = "Application"},
                       {.name = "Count", .type = ParamType::kInteger},
                       {.name = "Remote", .type = ParamType::kBoolean},
                       {.name = "Seconds", .type = ParamType::kDouble},
                       {.name = "User"}}};
}

BenchModule::BenchModule(bool synchronousFull) {
    DBConnectionPool::SetSynchronous(synchronousFull ? DBSynchronous::kFull : DBSynchronous::kNormal);
    LumAgentGetDebugContext(nullptr)->SetLevel(LumLogLevel::kError);
}

double SecondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double PeakBytesOf(const std::function<void()>& work) {
    malloc_trim(0);
    if (!(std::ofstream("/proc/self/clear_refs") << "5" << std::flush)) {
        Fail("the peak of the memory cannot be reset");
    }
    const double before = StatusBytes("VmRSS:");
    work();
    return StatusBytes("VmHWM:") - before;
}

double Median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
}

double Percentile99(std::vector<double> values) {
    const auto place = values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) * 99 / 100);
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

std::pair<double, double> Alternate(int rounds, const std::function<void()>& ours,
                                    const std::function<void()>& floor,
                                    const std::function<void()>& prepare) {
    std::vector<double> ourTimes;
    std::vector<double> floorTimes;
    for (int round = 0; round < rounds; ++round) {
        prepare();
        ourTimes.push_back(SecondsOf(ours));
        prepare();
        floorTimes.push_back(SecondsOf(floor));
    }
    return {Median(ourTimes), Median(floorTimes)};
}

void OnThreads(uint32_t threads, const std::function<void(uint32_t)>& work) {
    std::vector<std::thread> others;
    for (uint32_t i = 1; i < threads; ++i) {
        others.emplace_back(work, i);
    }
    work(0);
    for (std::thread& other : others) {
        other.join();
    }
}

std::vector<double> TimeCalls(uint32_t count, uint32_t threads, const std::function<void(uint32_t)>& call) {
    std::vector<std::vector<double>> times(threads);
    const auto work = [&](uint32_t first) {
        for (uint32_t i = first; i < count; i += threads) {
            times[first].push_back(SecondsOf([&] { call(i); }));
        }
    };
    OnThreads(threads, work);
    std::vector<double> all;
    for (const std::vector<double>& some : times) {
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

void PrintHead() {
    std::printf("%-48s | %14s | %14s | %6s | %s\n", "work", "ours", "floor", "ratio", "target");
}

void PrintRow(const std::string& work, double ours, double floor, double ratio, const char* target) {
    std::printf("%-48s | %14.2f | %14.2f | %6.2f | %s\n", work.c_str(), ours, floor, ratio, target);
    std::fflush(stdout);
}
