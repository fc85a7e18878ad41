#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "fleet/service/Backoff.h"

namespace {

TEST(Backoff, DrawsFromABoundThatDoubles) {
    int64_t largest = 0;
    int64_t smallest = INT64_MAX;
    for (uint64_t seed = 0; seed < 500; ++seed) {
        Backoff backoff(1'000, 300'000, seed);
        for (int64_t bound = 1'000; bound < 300'000; bound *= 2) {
            const int64_t wait = backoff.Next();
            EXPECT_GE(wait, 100);
            EXPECT_LE(wait, bound);
        }
        const int64_t wait = backoff.Next();
        EXPECT_LE(wait, 300'000);
        largest = std::max(largest, wait);
        smallest = std::min(smallest, wait);
        backoff.Reset();
        EXPECT_LE(backoff.Next(), 1'000);
    }
    // The whole of the last bound is used, so that many forwarders spread over it.
    EXPECT_GT(largest, 270'000);
    EXPECT_LT(smallest, 30'000);
}

/// What it is there for: after an outage of an hour, those who wait come back spread over the longest wait.
TEST(Backoff, AFleetComesBackWithoutAStampede) {
    constexpr int64_t outageMs = 3'600'000;
    constexpr int64_t longestMs = 300'000;
    constexpr int64_t binMs = 30'000;
    constexpr int devices = 20'000;
    std::vector<int> bins(longestMs / binMs);
    for (int device = 0; device < devices; ++device) {
        Backoff backoff(1'000, longestMs, static_cast<uint64_t>(device));
        int64_t tryMs = 0;
        while (tryMs < outageMs) {
            tryMs += backoff.Next();
        }
        ASSERT_LE(tryMs, outageMs + longestMs);
        ++bins[static_cast<std::size_t>((tryMs - outageMs) / binMs)];
    }
    const int mean = devices / static_cast<int>(bins.size());
    EXPECT_LE(*std::max_element(bins.begin(), bins.end()), 2 * mean);
}

}  // namespace
