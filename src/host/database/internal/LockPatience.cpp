#include "host/database/internal/LockPatience.h"

#include <algorithm>
#include <thread>

#include <sqlite3.h>

#include "host/database/Database.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kInAll{DBConnectionPool::kBusyTimeoutMs};
/// What each further statement waits at least.
constexpr milliseconds kEach{100};
constexpr milliseconds kLongestPause{25};

}  // namespace

void LockPatience::GiveTo(sqlite3* database) {
    sqlite3_busy_handler(
        database,
        [](void* self, int attempts) { return static_cast<LockPatience*>(self)->WaitMore(attempts) ? 1 : 0; },
        this);
}

bool LockPatience::WaitMore(int attempts) {
    const Clock::time_point now = Clock::now();
    if (attempts == 0) {
        since_ = since_.value_or(now);
        until_ = std::max(*since_ + kInAll, now + kEach);
    }
    if (now >= until_) {
        return false;
    }
    const milliseconds pause = std::min(milliseconds(attempts + 1), kLongestPause);
    std::this_thread::sleep_for(std::min<Clock::duration>(pause, until_ - now));
    return true;
}

void LockPatience::NoteEnd(bool locked) {
    if (!locked) {
        since_.reset();
    }
}
