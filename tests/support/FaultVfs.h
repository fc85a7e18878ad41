#pragma once

#include <cstdint>
#include <string>

/// Lets chosen file operations of SQLite fail, in this process: a layer between SQLite and the system's
/// files. While one exists it is the default for every database that is opened, so it is to be made before
/// those that it shall see, and to outlive them. One at a time. All operations may be called from any thread.
///
///     FaultVfs faults;
///     ... open the database, fill it ...
///     faults.FailCall(FaultVfs::Call::kWrite, 3, SQLITE_IOERR_WRITE);   // the third write from now on
///     faults.FailCallsFrom(FaultVfs::Call::kSync, 1, SQLITE_IOERR_FSYNC);  // every sync
///     faults.SetDiskFull(true);                                         // every write that makes a file
///     grow faults.KillAtCall(FaultVfs::Call::kAny, 100);                     // SIGKILL before the hundredth
///     call faults.Reset();                                                   // all is well again
class FaultVfs {
public:
    enum class Call : uint8_t {
        kOpen,
        kRead,
        kWrite,
        kSync,
        kTruncate,
        kLock,  ///< of the database file, and of the index of its write-ahead log
        kDelete,
        kShmMap,  ///< the index of the write-ahead log is mapped or made larger
        kAny,     ///< each of these
    };

    FaultVfs();
    FaultVfs(const FaultVfs&) = delete;
    FaultVfs& operator=(const FaultVfs&) = delete;
    ~FaultVfs();

    /// The `nth` call of that kind from now on, the next one being 1, fails with `code`, a result code of
    /// SQLite, and does nothing. Replaces what was asked for before.
    void FailCall(Call call, uint64_t nth, int code);
    /// The same for that call and all after it.
    void FailCallsFrom(Call call, uint64_t nth, int code);
    /// Ends the process by SIGKILL in place of that call.
    void KillAtCall(Call call, uint64_t nth);
    /// While on, what would make a file larger fails with SQLITE_FULL.
    void SetDiskFull(bool full);
    /// While on, each sync waits at its beginning, on whatever thread it is.
    void HoldSyncs(bool hold);
    /// Waits until `count` syncs are held at once; false after ten seconds.
    [[nodiscard]] bool AwaitHeldSyncs(uint64_t count);
    /// Only files whose path contains `part` are counted and fail; at first all are.
    void SetPathFilter(const std::string& part);

    /// How many calls of that kind there were since the last Reset, those that failed included.
    [[nodiscard]] uint64_t CountCalls(Call call) const;
    /// Forgets faults, filter and counts.
    void Reset();
};
