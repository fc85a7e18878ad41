#pragma once

#include <atomic>

#include "host/core/LumStartup.h"

/// While it lives, LumStopRequested answers yes from its `after`-th question on, as if the agent had been
/// told to stop then. One at a time.
class StopRequest {
public:
    explicit StopRequest(int after = 1) {
        Left() = after;
        LumStartupSetHost({nullptr, [] { return --Left() <= 0; }});
    }
    StopRequest(const StopRequest&) = delete;
    StopRequest& operator=(const StopRequest&) = delete;
    ~StopRequest() { LumStartupSetHost({}); }

private:
    static std::atomic<int>& Left() {
        static std::atomic<int> left{0};
        return left;
    }
};
