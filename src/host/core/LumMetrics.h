#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "host/container/LumContainer.h"
#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// The numbers that the agent shows on /metrics, and what modules show on /status. Every routine may be
/// called from any thread.
///
/// A metric is made once and used for ever: it belongs to the core, so that a reference stays good after its
/// module has gone, and a module that comes back counts on. Changing one is an atomic operation or two.

/// (name, value) of each label. Names are lower case with underscores; values are any text, but few: each
/// different value is a line of its own for as long as the process lives.
using LumMetricLabels = std::vector<std::pair<LumString, LumString>>;

class LumCounter {
public:
    void Add(uint64_t amount = 1) { value_.fetch_add(amount, std::memory_order_relaxed); }
    [[nodiscard]] uint64_t Get() const { return value_.load(std::memory_order_relaxed); }

private:
    std::atomic<uint64_t> value_{0};
};

class LumGauge {
public:
    void Set(double value) { value_.store(value, std::memory_order_relaxed); }
    /// Leaves it out of /metrics until it is set again.
    void Clear() { Set(std::numeric_limits<double>::quiet_NaN()); }
    [[nodiscard]] double Get() const { return value_.load(std::memory_order_relaxed); }

private:
    std::atomic<double> value_{std::numeric_limits<double>::quiet_NaN()};
};

class LumHistogram {
public:
    /// `bounds` are the upper ends of the buckets, ascending; one without end comes after them.
    explicit LumHistogram(std::vector<double> bounds)
        : bounds_(std::move(bounds)),
          counts_(std::make_unique<std::atomic<uint64_t>[]>(bounds_.size() + 1)) {}

    void Observe(double value) {
        std::size_t bucket = 0;
        while (bucket < bounds_.size() && value > bounds_[bucket]) {
            ++bucket;
        }
        counts_[bucket].fetch_add(1, std::memory_order_relaxed);
        sum_.fetch_add(value, std::memory_order_relaxed);
    }

    [[nodiscard]] const std::vector<double>& GetBounds() const { return bounds_; }
    /// How many values fell into bucket 0 .. bounds.
    [[nodiscard]] uint64_t GetCount(std::size_t bucket) const {
        return counts_[bucket].load(std::memory_order_relaxed);
    }
    [[nodiscard]] double GetSum() const { return sum_.load(std::memory_order_relaxed); }

private:
    const std::vector<double> bounds_;
    const std::unique_ptr<std::atomic<uint64_t>[]> counts_;
    std::atomic<double> sum_{0.0};
};

/// The metric of that name and those labels, made at its first mention. `name` begins with "lum_" and ends
/// with its unit ("_seconds", "_bytes"), a counter's with "_total"; `help` is one sentence. The name stands
/// for one kind and one help text: those of its first mention. Asking takes a lock: keep the reference.
[[nodiscard]] LUM_API LumCounter& LumMetricsCounter(const char* name, const char* help,
                                                    const LumMetricLabels& labels = {});
[[nodiscard]] LUM_API LumGauge& LumMetricsGauge(const char* name, const char* help,
                                                const LumMetricLabels& labels = {});
/// `bounds` as LumHistogram takes them; those of the name's first mention hold. Empty for times in seconds:
/// 0.1 ms to 30 s.
[[nodiscard]] LUM_API LumHistogram& LumMetricsHistogram(const char* name, const char* help,
                                                        const LumMetricLabels& labels = {},
                                                        const std::vector<double>& bounds = {});

/// All metrics as Prometheus text (version 0.0.4), after every LumMetricsRefresh has been called.
[[nodiscard]] LUM_API LumString LumMetricsText();

/// While it lives, `refresh` is called before each answer of /metrics, to set gauges whose values are looked
/// up rather than kept. It has to be quick. Its end waits for a call that is under way.
class LUM_API LumMetricsRefresh {
public:
    explicit LumMetricsRefresh(std::function<void()> refresh);
    LumMetricsRefresh(const LumMetricsRefresh&) = delete;
    LumMetricsRefresh& operator=(const LumMetricsRefresh&) = delete;
    ~LumMetricsRefresh();
};

/// While it lives, `fill` is asked for what /status shows under `name`, the module's, or, with an empty name,
/// beside what the agent itself shows. It has to be quick,
/// whatever the module stores: a second at most. Its end waits for a call that is under way, so a module ends
/// it with command 5 at the latest.
class LUM_API LumStatusProvider {
public:
    LumStatusProvider(const LumString& name, std::function<void(LumContainer&)> fill);
    LumStatusProvider(const LumStatusProvider&) = delete;
    LumStatusProvider& operator=(const LumStatusProvider&) = delete;
    ~LumStatusProvider();
};

/// Puts a number of any size: a 32-bit integer where it is one, else a double.
LUM_API void LumStatusSetNumber(LumContainer& status, const LumString& name, uint64_t number);

/// What the providers say, in the order in which they came.
LUM_API void LumStatusCollect(LumContainer& status);
