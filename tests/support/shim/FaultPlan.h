#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <string_view>

/// How the calls of a process to its file system are disturbed. libfaultshim.so (FaultShim.cpp) stands
/// between the process and the C library and does what a plan says. Two ways to use it:
///
///     - a program that is linked with it, for itself and the processes it forks:
///           FaultPlan plan;                        // in memory of its own, or shared with what it forks
///           FaultShimUse(&plan);
///     - any other program, preloaded: LD_PRELOAD=libfaultshim.so, and LUM_FAULT_PLAN names a file of
///       sizeof(FaultPlan) bytes (zeros will do) that the test has mapped too, so that it can arm, read and
///       disarm the plan of a process that runs.
///
/// A plan counts the calls that its kind can hit, while it is armed and on files below `under` alone. The
/// calls number `first` to `last` are hit, the next one being 1. A call that is hit does nothing but fail.
struct FaultPlan {
    enum class Kind : uint32_t {
        kKill,     ///< SIGKILL in place of a call that changes something
        kNoRoom,   ///< ENOSPC from a call that takes room
        kBroken,   ///< EIO from a call that changes something, syncs among them
        kNoFiles,  ///< EMFILE from a call that opens something, also for reading
        kSlow      ///< a call that reads takes `delayMs` longer, and does not fail
    };

    static constexpr uint64_t kForEver = UINT64_MAX;

    std::atomic<bool> armed{false};
    std::atomic<Kind> kind{Kind::kKill};
    std::atomic<uint64_t> count{0};
    std::atomic<uint64_t> first{0};  ///< 0: none is hit, all are counted
    std::atomic<uint64_t> last{0};
    std::atomic<uint32_t> delayMs{0};
    char under[1024] = {};   ///< empty: everywhere
    char except[1024] = {};  ///< what begins with this is left alone; empty: nothing

    /// Begins to count from 0 and to hit `length` calls from number `nth` on.
    void Arm(Kind what, uint64_t nth, uint64_t length = 1) {
        armed = false;
        kind = what;
        count = 0;
        first = nth;
        last = length > kForEver - nth ? kForEver : nth + length - 1;
        armed = true;
    }
    /// From now on all is well; returns how many calls there were.
    uint64_t Disarm() {
        armed = false;
        return count;
    }

    void Watch(std::string_view path, std::string_view butNot = {}) {
        Copy(path, under);
        Copy(butNot, except);
    }

private:
    template <std::size_t Size>
    static void Copy(std::string_view path, char (&place)[Size]) {
        const std::size_t length = path.size() < Size ? path.size() : Size - 1;
        path.copy(place, length);
        place[length] = '\0';
    }
};

static_assert(std::atomic<uint64_t>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

/// From now on `plan`, which must stay where it is, disturbs this process; null ends it.
extern "C" void FaultShimUse(FaultPlan* plan);
