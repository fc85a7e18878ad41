#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "alerts/LumHash.h"
#include "host/text/LumString.h"
#include "host/thread/LumMutex.h"

/// When each alert was last let through, by its text and by the object it is about. Grows with the number of
/// different alerts for as long as the module is loaded. Guarded by AlertGapMutex.
class AlertGapTable_t {
public:
    /// True where the alert may pass: none of that text and object has passed yet, or the last one that did
    /// was at least `gapMinutes` before `time`. One that passes is the new reference; one that does not
    /// leaves the old one. `time` is in seconds; the comparison is unsigned and wraps at 32 bits.
    [[nodiscard]] bool LetThrough(const LumString& text, uint32_t objectId, uint32_t time,
                                  uint32_t gapMinutes);

    /// True where LetThrough would say no. Remembers nothing.
    [[nodiscard]] bool HoldsBack(const LumString& text, uint32_t objectId, uint32_t time,
                                 uint32_t gapMinutes);

private:
    using TimesByObject = LumHash<uint32_t>;

    static constexpr uint32_t kInitialBuckets = 256;
    static constexpr uint32_t kMaximumLoad = 80;
    static constexpr uint32_t kGrowth = 20;

    /// When an alert of one text passed, by object. Most texts are about one object alone, for which a table
    /// of its own would take two kilobytes.
    struct Times {
        uint32_t firstObject = 0;
        uint32_t firstTime = 0;
        std::unique_ptr<TimesByObject> others;

        [[nodiscard]] uint32_t* Find(uint32_t objectId);
        void Insert(uint32_t objectId, uint32_t time);
    };

    LumHash<Times> timesByText_{kInitialBuckets, kMaximumLoad, kGrowth};
};

/// Guards AlertGapTable. DatabaseMutex may be held when it is taken, never taken while it is held.
extern LumMutex AlertGapMutex;
extern AlertGapTable_t AlertGapTable;

/// The setting, in minutes.
extern std::atomic<int32_t> AlertMinimumGap;
