#pragma once

#include <cstdint>
#include <random>

/// How long to wait before the next attempt: a time drawn evenly from 0 up to a bound that doubles with every
/// failure ("full jitter"), so that many who lost the same server do not come back together. The least is one
/// tenth of the first bound.
class Backoff {
public:
    /// `firstMs` is the first bound, `lastMs` the largest.
    Backoff(int64_t firstMs, int64_t lastMs, uint64_t seed)
        : firstMs_(firstMs), lastMs_(lastMs), boundMs_(firstMs), random_(seed) {}

    /// The wait after one more failure, in milliseconds.
    [[nodiscard]] int64_t Next();
    /// To be called after a success.
    void Reset() { boundMs_ = firstMs_; }

private:
    const int64_t firstMs_;
    const int64_t lastMs_;
    int64_t boundMs_;
    std::mt19937_64 random_;
};

/// A seed of the system's.
[[nodiscard]] uint64_t RandomSeed();
