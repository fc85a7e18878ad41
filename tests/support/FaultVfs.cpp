#include "support/FaultVfs.h"

#include <array>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>

#include <sqlite3.h>

namespace {

using Call = FaultVfs::Call;

constexpr std::size_t kCalls = static_cast<std::size_t>(Call::kAny) + 1;

struct Fault {
    Call call;
    uint64_t nth;
    int code;
    bool andAllBehind;
    bool kills;
};

/// What is asked for and what was seen.
class Plan {
public:
    void Set(const Fault& fault) {
        const std::lock_guard<std::mutex> guard(mutex_);
        fault_ = fault;
        fault_->nth += counts_[Index(fault.call)];
    }

    void SetDiskFull(bool full) {
        const std::lock_guard<std::mutex> guard(mutex_);
        diskFull_ = full;
    }

    void SetPathFilter(const std::string& part) {
        const std::lock_guard<std::mutex> guard(mutex_);
        pathPart_ = part;
    }

    [[nodiscard]] uint64_t Count(Call call) const {
        const std::lock_guard<std::mutex> guard(mutex_);
        return counts_[Index(call)];
    }

    void Reset() {
        const std::lock_guard<std::mutex> guard(mutex_);
        fault_.reset();
        diskFull_ = false;
        holdSyncs_ = false;
        changed_.notify_all();
        pathPart_.clear();
        counts_ = {};
    }

    /// Counts one call and says how it is to end: SQLITE_OK where it is to be carried out.
    [[nodiscard]] int Note(Call call, const char* path) {
        const std::lock_guard<std::mutex> guard(mutex_);
        if (path != nullptr && std::strstr(path, pathPart_.c_str()) == nullptr) {
            return SQLITE_OK;
        }
        ++counts_[Index(call)];
        ++counts_[Index(Call::kAny)];
        if (!fault_ || (fault_->call != call && fault_->call != Call::kAny)) {
            return SQLITE_OK;
        }
        const uint64_t count = counts_[Index(fault_->call)];
        if (count < fault_->nth || (count > fault_->nth && !fault_->andAllBehind)) {
            return SQLITE_OK;
        }
        if (fault_->kills) {
            raise(SIGKILL);
        }
        return fault_->code;
    }

    void HoldSyncs(bool hold) {
        const std::lock_guard<std::mutex> guard(mutex_);
        holdSyncs_ = hold;
        changed_.notify_all();
    }

    [[nodiscard]] bool AwaitHeldSyncs(uint64_t count) {
        std::unique_lock<std::mutex> guard(mutex_);
        return changed_.wait_for(guard, std::chrono::seconds(10), [&] { return heldSyncs_ >= count; });
    }

    void PassSyncGate() {
        std::unique_lock<std::mutex> guard(mutex_);
        ++heldSyncs_;
        changed_.notify_all();
        changed_.wait(guard, [this] { return !holdSyncs_; });
        --heldSyncs_;
    }

    [[nodiscard]] bool IsDiskFull() const {
        const std::lock_guard<std::mutex> guard(mutex_);
        return diskFull_;
    }

private:
    static std::size_t Index(Call call) { return static_cast<std::size_t>(call); }

    mutable std::mutex mutex_;
    std::optional<Fault> fault_;
    bool diskFull_ = false;
    bool holdSyncs_ = false;
    uint64_t heldSyncs_ = 0;
    std::condition_variable changed_;
    std::string pathPart_;
    std::array<uint64_t, kCalls> counts_{};
};

Plan plan;
sqlite3_vfs* systemVfs = nullptr;
sqlite3_vfs faultVfs;

/// A file as SQLite sees it; the system's own file lies right after it.
struct FaultFile {
    sqlite3_file base;
    const char* path;  // SQLite keeps it while the file is open; null for a file without a name
};

sqlite3_file* Inner(sqlite3_file* file) {
    return reinterpret_cast<sqlite3_file*>(reinterpret_cast<FaultFile*>(file) + 1);
}

int Note(Call call, sqlite3_file* file) {
    return plan.Note(call, reinterpret_cast<FaultFile*>(file)->path);
}

/// Carries a call out unless it is to fail.
template <class Action>
int Unless(int failure, const Action& action) {
    return failure != SQLITE_OK ? failure : action();
}

int Close(sqlite3_file* file) {
    return Inner(file)->pMethods->xClose(Inner(file));
}

int Read(sqlite3_file* file, void* to, int bytes, sqlite3_int64 offset) {
    return Unless(Note(Call::kRead, file),
                  [&] { return Inner(file)->pMethods->xRead(Inner(file), to, bytes, offset); });
}

int Write(sqlite3_file* file, const void* from, int bytes, sqlite3_int64 offset) {
    return Unless(Note(Call::kWrite, file), [&] {
        sqlite3_int64 size = 0;
        if (plan.IsDiskFull() && Inner(file)->pMethods->xFileSize(Inner(file), &size) == SQLITE_OK &&
            offset + bytes > size) {
            return SQLITE_FULL;
        }
        return Inner(file)->pMethods->xWrite(Inner(file), from, bytes, offset);
    });
}

int Truncate(sqlite3_file* file, sqlite3_int64 size) {
    return Unless(Note(Call::kTruncate, file),
                  [&] { return Inner(file)->pMethods->xTruncate(Inner(file), size); });
}

int Sync(sqlite3_file* file, int flags) {
    plan.PassSyncGate();
    return Unless(Note(Call::kSync, file), [&] { return Inner(file)->pMethods->xSync(Inner(file), flags); });
}

int FileSize(sqlite3_file* file, sqlite3_int64* size) {
    return Inner(file)->pMethods->xFileSize(Inner(file), size);
}

int Lock(sqlite3_file* file, int level) {
    return Unless(Note(Call::kLock, file), [&] { return Inner(file)->pMethods->xLock(Inner(file), level); });
}

int Unlock(sqlite3_file* file, int level) {
    return Inner(file)->pMethods->xUnlock(Inner(file), level);
}

int CheckReservedLock(sqlite3_file* file, int* held) {
    return Inner(file)->pMethods->xCheckReservedLock(Inner(file), held);
}

int FileControl(sqlite3_file* file, int operation, void* argument) {
    return Inner(file)->pMethods->xFileControl(Inner(file), operation, argument);
}

int SectorSize(sqlite3_file* file) {
    return Inner(file)->pMethods->xSectorSize(Inner(file));
}

int DeviceCharacteristics(sqlite3_file* file) {
    return Inner(file)->pMethods->xDeviceCharacteristics(Inner(file));
}

int ShmMap(sqlite3_file* file, int region, int size, int extend, void volatile** memory) {
    return Unless(Note(Call::kShmMap, file),
                  [&] { return Inner(file)->pMethods->xShmMap(Inner(file), region, size, extend, memory); });
}

int ShmLock(sqlite3_file* file, int offset, int count, int flags) {
    const bool locks = (flags & SQLITE_SHM_LOCK) != 0;
    return Unless(locks ? Note(Call::kLock, file) : SQLITE_OK,
                  [&] { return Inner(file)->pMethods->xShmLock(Inner(file), offset, count, flags); });
}

void ShmBarrier(sqlite3_file* file) {
    Inner(file)->pMethods->xShmBarrier(Inner(file));
}

int ShmUnmap(sqlite3_file* file, int erase) {
    return Inner(file)->pMethods->xShmUnmap(Inner(file), erase);
}

int Fetch(sqlite3_file* file, sqlite3_int64 offset, int bytes, void** memory) {
    return Inner(file)->pMethods->xFetch(Inner(file), offset, bytes, memory);
}

int Unfetch(sqlite3_file* file, sqlite3_int64 offset, void* memory) {
    return Inner(file)->pMethods->xUnfetch(Inner(file), offset, memory);
}

constexpr sqlite3_io_methods kMethods = {3,
                                         Close,
                                         Read,
                                         Write,
                                         Truncate,
                                         Sync,
                                         FileSize,
                                         Lock,
                                         Unlock,
                                         CheckReservedLock,
                                         FileControl,
                                         SectorSize,
                                         DeviceCharacteristics,
                                         ShmMap,
                                         ShmLock,
                                         ShmBarrier,
                                         ShmUnmap,
                                         Fetch,
                                         Unfetch};

int Open(sqlite3_vfs* /*vfs*/, const char* path, sqlite3_file* file, int flags, int* outFlags) {
    auto* const opened = reinterpret_cast<FaultFile*>(file);
    opened->base.pMethods = nullptr;
    opened->path = path;
    return Unless(plan.Note(Call::kOpen, path), [&] {
        const int status = systemVfs->xOpen(systemVfs, path, Inner(file), flags, outFlags);
        if (Inner(file)->pMethods != nullptr) {
            opened->base.pMethods = &kMethods;
        }
        return status;
    });
}

int Delete(sqlite3_vfs* /*vfs*/, const char* path, int syncDirectory) {
    return Unless(plan.Note(Call::kDelete, path),
                  [&] { return systemVfs->xDelete(systemVfs, path, syncDirectory); });
}

}  // namespace

FaultVfs::FaultVfs() {
    sqlite3_initialize();
    systemVfs = sqlite3_vfs_find(nullptr);
    plan.Reset();
    // Everything that is not a file, the clock for one, is the system's: its routines take any layer for
    // theirs.
    faultVfs = *systemVfs;
    faultVfs.szOsFile = systemVfs->szOsFile + static_cast<int>(sizeof(FaultFile));
    faultVfs.zName = "fault";
    faultVfs.pNext = nullptr;
    faultVfs.xOpen = Open;
    faultVfs.xDelete = Delete;
    sqlite3_vfs_register(&faultVfs, 1);
}

FaultVfs::~FaultVfs() {
    sqlite3_vfs_unregister(&faultVfs);
    sqlite3_vfs_register(systemVfs, 1);
}

void FaultVfs::FailCall(Call call, uint64_t nth, int code) {
    plan.Set({call, nth, code, false, false});
}

void FaultVfs::FailCallsFrom(Call call, uint64_t nth, int code) {
    plan.Set({call, nth, code, true, false});
}

void FaultVfs::KillAtCall(Call call, uint64_t nth) {
    plan.Set({call, nth, SQLITE_OK, false, true});
}

void FaultVfs::SetDiskFull(bool full) {
    plan.SetDiskFull(full);
}

void FaultVfs::HoldSyncs(bool hold) {
    plan.HoldSyncs(hold);
}

bool FaultVfs::AwaitHeldSyncs(uint64_t count) {
    return plan.AwaitHeldSyncs(count);
}

void FaultVfs::SetPathFilter(const std::string& part) {
    plan.SetPathFilter(part);
}

uint64_t FaultVfs::CountCalls(Call call) const {
    return plan.Count(call);
}

void FaultVfs::Reset() {
    plan.Reset();
}
