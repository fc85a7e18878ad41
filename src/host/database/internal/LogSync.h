#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

struct sqlite3;
struct sqlite3_file;

/// Makes the changes in the write-ahead log of one open database durable. SQLite itself leaves the sync of a
/// commit out; the threads that wait for theirs share one (the group commit of DeWitt et al., "Implementation
/// Techniques for Main Memory Database Systems", 1984). One thread syncs for all that had committed when it
/// began, while further ones commit and wait for the next.
class LogSync {
public:
    /// To be called after each commit, by the thread that holds the handle of `database`. Returns the ticket
    /// that stands for the commit; later commits have greater ones.
    [[nodiscard]] uint64_t NoteCommit(sqlite3* database);

    /// Waits until the commit of that ticket is durable. False where a sync failed; then `error` says why to
    /// the first caller that learns of it, and stays empty for the others. Called without any lock.
    [[nodiscard]] bool Await(uint64_t ticket, std::string& error);

    /// To be called where a sync of this log failed elsewhere: what it should have written may be lost
    /// although the next one succeeds, so no ticket is confirmed any more.
    void NoteFailure(const std::string& reason);
    [[nodiscard]] bool HasFailed() const { return failed_.load(std::memory_order_acquire); }

    /// To be called before the database is closed: waits for a running sync, makes a last one where commits
    /// still wait for it, and uses the file no more.
    void Detach();
    /// Tells no reason any more: nobody is left to say it.
    void Forget();

private:
    /// Makes one sync for all that have committed; the lock is free meanwhile.
    void SyncForAll(std::unique_lock<std::mutex>& lock);
    /// Sleeps until the sync that makes the ticket durable has ended, or, where the one that runs does not,
    /// until the next one is to be made.
    void WaitForSync(uint64_t ticket, std::unique_lock<std::mutex>& lock);
    [[nodiscard]] int Sync() const;
    void Fail(const std::string& reason);

    std::atomic<uint64_t> committed_{0};  // written with the handle held
    std::atomic<sqlite3_file*> file_{nullptr};
    std::atomic<bool> failed_{false};

    std::mutex mutex_;
    uint64_t durable_ = 0;  // the greatest ticket that is on the disk
    uint64_t reached_ = 0;  // the one that will be, after the sync that runs
    bool syncing_ = false;
    // Who waits for one sync is not woken by the other: the number of the sync that runs is even or odd.
    uint64_t syncs_ = 0;
    std::array<std::condition_variable, 2> ended_;
    std::string untoldReason_;
};
