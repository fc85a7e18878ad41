#pragma once

#include <cstdint>

#include "host/text/LumString.h"
#include "host/thread/LumMutex.h"
#include "host/thread/LumThreadSafety.h"

/// A number that only ever grows, across restarts and crashes, at the cost of one small write in kBlock
/// calls: a file holds the end of the block that numbers are taken from, and is written before the first of
/// them is given out. After a crash the rest of a block is skipped. Next may be called from any thread.
class RunningNumber {
public:
    static constexpr uint64_t kBlock = 1000;

    /// Goes on after what the file at `path` holds, and never below `lowest`. False, with what is wrong in
    /// `error`, where the file cannot be understood; then `lowest` alone counts. A missing file is not an
    /// error.
    bool Open(const LumString& path, uint64_t lowest, LumString& error);

    /// False, with the reason in `error`, where a new block could not be written down.
    [[nodiscard]] bool Next(uint64_t& number, LumString& error);

    /// Sees to it that the next number can be given out; false, with the reason in `error`, where it cannot.
    [[nodiscard]] bool Reserve(LumString& error);

    /// Writes down how far the numbers have come, so that none is skipped. A later Next begins a new block.
    void Close();

private:
    [[nodiscard]] bool ReserveLocked(LumString& error) LUM_REQUIRES(mutex_);

    LumMutex mutex_;
    LumString path_ LUM_GUARDED_BY(mutex_);
    uint64_t next_ LUM_GUARDED_BY(mutex_) = 1;
    uint64_t end_ LUM_GUARDED_BY(mutex_) = 1;
};
