#pragma once

#include <chrono>
#include <optional>

struct sqlite3;

/// How long statements wait for another process that holds the database. The time counts from the first
/// statement that met the lock: those after it, which have waited for that one, fail soon as long as the lock
/// stands, so that a queue of callers costs the time once and not once each. Belongs to whoever holds the
/// handle's lock.
class LockPatience {
public:
    LockPatience() = default;
    LockPatience(const LockPatience&) = delete;
    LockPatience& operator=(const LockPatience&) = delete;
    ~LockPatience() = default;

    /// Makes `database` wait so. This object must outlive it.
    void GiveTo(sqlite3* database);
    /// To be called after each statement: `locked` where it failed because of the lock.
    void NoteEnd(bool locked);

private:
    using Clock = std::chrono::steady_clock;

    [[nodiscard]] bool WaitMore(int attempts);

    std::optional<Clock::time_point> since_;
    Clock::time_point until_;
};
