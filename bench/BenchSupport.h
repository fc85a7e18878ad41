#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/LinkedModule.h"
#include "support/Sqlite.h"

/// What the benchmarks share: SQLite as it comes, the module, timing in turns, and the table they print.

constexpr double kMiB = 1024 * 1024;

/// Says what went wrong and ends the program: a benchmark that goes on after a failure measures nothing.
[[noreturn]] void Fail(const std::string& what);

/// True unless the program was called with --full: the small form, which every test run includes, measures
/// nothing.
[[nodiscard]] bool IsTiny(int argc, char** argv);

/// SQLite's own interface on one database in WAL mode: what the product is measured against.
class RawDatabase : public Sqlite {
public:
    RawDatabase(const std::string& path, bool synchronousFull);

    [[nodiscard]] sqlite3_stmt* Prepare(const std::string& sql);
    /// Prepares, steps and finalizes one statement that returns no row.
    void RunOnce(const std::string& sql);
};

/// The model of five parameters whose events most figures are about.
[[nodiscard]] ModelText BenchModel(const std::string& name);

/// The module linked in, with a log of errors alone.
class BenchModule : public LinkedModule {
public:
    explicit BenchModule(bool synchronousFull);
};

[[nodiscard]] double SecondsOf(const std::function<void()>& work);
/// By how many bytes the resident memory of this process grows while `work` runs, at its peak. What was freed
/// before is given back to the system first. Linux counts the peak since the last reset (proc(5),
/// clear_refs).
[[nodiscard]] double PeakBytesOf(const std::function<void()>& work);
[[nodiscard]] double Median(std::vector<double> values);
/// The value that 99 of 100 do not exceed.
[[nodiscard]] double Percentile99(std::vector<double> values);

/// Median seconds of `ours` and of `floor`, taken in turns so that both see the same machine. `prepare` runs
/// before each turn and is not timed.
[[nodiscard]] std::pair<double, double> Alternate(
    int rounds, const std::function<void()>& ours, const std::function<void()>& floor,
    const std::function<void()>& prepare = [] {});

/// Calls `work` with 0 to `threads` - 1, each on a thread of its own, the first on this one.
void OnThreads(uint32_t threads, const std::function<void(uint32_t)>& work);

/// Runs `call(number)` for all numbers below `count` on that many threads; how long each call took, in
/// seconds.
[[nodiscard]] std::vector<double> TimeCalls(uint32_t count, uint32_t threads,
                                            const std::function<void(uint32_t)>& call);

void PrintHead();
/// One row; `ratio` is printed beside the target that it is to reach.
void PrintRow(const std::string& work, double ours, double floor, double ratio, const char* target);
