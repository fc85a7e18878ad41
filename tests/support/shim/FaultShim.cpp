// The library that FaultPlan.h describes: it defines the calls of the C library that touch files, and passes
// on those that the plan does not hit. Only system calls are made on the way, as any call may be inside of
// another.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <dirent.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include "support/shim/FaultPlan.h"
#include "support/shim/Interpose.h"

namespace {

std::atomic<FaultPlan*> usedPlan{nullptr};

/// Maps the plan of a preloaded process before its main begins.
__attribute__((constructor)) void MapPlan() {
    const char* const path = std::getenv("LUM_FAULT_PLAN");
    if (path == nullptr) {
        return;
    }
    const long fd = syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC);
    void* const place = fd < 0 ? MAP_FAILED
                               : mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED,
                                      static_cast<int>(fd), 0);
    if (place == MAP_FAILED) {
        static constexpr char kText[] = "libfaultshim: no plan in the file that LUM_FAULT_PLAN names\n";
        static_cast<void>(syscall(SYS_write, STDERR_FILENO, kText, sizeof kText - 1));
        _exit(127);
    }
    syscall(SYS_close, fd);
    usedPlan = static_cast<FaultPlan*>(place);
}

/// What a call does, as far as the kinds of faults tell calls apart.
enum Effect : unsigned {
    kOpens = 1U,
    kChanges = 2U,
    kTakesRoom = 4U,
    kReads = 8U,
};

struct Fault {
    unsigned effect;
    int reason;
};

Fault FaultOf(FaultPlan::Kind kind) {
    switch (kind) {
        case FaultPlan::Kind::kNoRoom:
            return {kTakesRoom, ENOSPC};
        case FaultPlan::Kind::kBroken:
            return {kChanges, EIO};
        case FaultPlan::Kind::kNoFiles:
            return {kOpens, EMFILE};
        case FaultPlan::Kind::kSlow:
            return {kReads, 0};
        case FaultPlan::Kind::kKill:
            break;
    }
    return {kChanges, 0};
}

bool BeginsWith(const char* path, const char* start) {
    return std::strncmp(path, start, std::strlen(start)) == 0;
}

bool IsWatched(const FaultPlan& plan, const char* path) {
    return BeginsWith(path, plan.under) && (plan.except[0] == '\0' || !BeginsWith(path, plan.except));
}

/// The path that is open as `fd`; false where there is none.
bool PathOf(int fd, char* path, std::size_t size) {
    char link[64];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const long length = syscall(SYS_readlinkat, AT_FDCWD, link, path, size - 1);
    if (length < 0) {
        return false;
    }
    path[length] = '\0';
    return true;
}

/// True, with errno, where the call is to fail. Does not return where it is the process's last.
bool IsHit(unsigned effect, const char* path) {
    const int before = errno;
    FaultPlan* const plan = usedPlan.load();
    if (plan == nullptr || !plan->armed) {
        return false;
    }
    const Fault fault = FaultOf(plan->kind);
    if ((effect & fault.effect) == 0 || !IsWatched(*plan, path)) {
        return false;
    }
    const uint64_t number = ++plan->count;
    if (plan->first == 0 || number < plan->first || number > plan->last) {
        errno = before;
        return false;
    }
    if (plan->kind == FaultPlan::Kind::kSlow) {
        const timespec delay{0, static_cast<long>(plan->delayMs) * 1000000};
        syscall(SYS_nanosleep, &delay, nullptr);
        errno = before;
        return false;
    }
    if (fault.reason == 0) {
        syscall(SYS_kill, getpid(), SIGKILL);
    }
    errno = fault.reason;
    return true;
}

bool IsHitAt(unsigned effect, int directory, const char* path) {
    if (path[0] == '/' || directory == AT_FDCWD) {
        return IsHit(effect, path);
    }
    char whole[4096];
    if (!PathOf(directory, whole, sizeof whole / 2)) {
        return false;
    }
    const std::size_t length = std::strlen(whole);
    std::snprintf(whole + length, sizeof whole - length, "/%s", path);
    return IsHit(effect, whole);
}

bool IsHitOpen(unsigned effect, int fd) {
    const FaultPlan* const plan = usedPlan.load();
    if (plan == nullptr || !plan->armed) {
        return false;
    }
    const int before = errno;
    char path[4096];
    const bool known = PathOf(fd, path, sizeof path);
    errno = before;
    return known && IsHit(effect, path);
}

unsigned EffectOfOpen(int flags) {
    return kOpens | ((flags & (O_CREAT | O_TRUNC)) != 0 ? kChanges | kTakesRoom : 0U);
}

/// Defines a call of the C library that fails with `failed` where `hit` holds.
#define LUM_CALL(result, name, parameters, arguments, hit, failed)             \
    extern "C" __attribute__((visibility("default"))) result name parameters { \
        static auto* const real = Real<result parameters>(#name);              \
        return (hit) ? (failed) : real arguments;                              \
    }

}  // namespace

extern "C" __attribute__((visibility("default"))) void FaultShimUse(FaultPlan* plan) {
    usedPlan = plan;
}

extern "C" __attribute__((visibility("default"))) int open(const char* path, int flags, ...) {
    static auto* const real = Real<int(const char*, int, ...)>("open");
    LUM_TAKE_MODE(flags, mode)
    return IsHit(EffectOfOpen(flags), path) ? -1 : real(path, flags, mode);
}

extern "C" __attribute__((visibility("default"))) int open64(const char* path, int flags, ...) {
    static auto* const real = Real<int(const char*, int, ...)>("open64");
    LUM_TAKE_MODE(flags, mode)
    return IsHit(EffectOfOpen(flags), path) ? -1 : real(path, flags, mode);
}

extern "C" __attribute__((visibility("default"))) int openat(int directory, const char* path, int flags,
                                                             ...) {
    static auto* const real = Real<int(int, const char*, int, ...)>("openat");
    LUM_TAKE_MODE(flags, mode)
    return IsHitAt(EffectOfOpen(flags), directory, path) ? -1 : real(directory, path, flags, mode);
}

extern "C" __attribute__((visibility("default"))) int openat64(int directory, const char* path, int flags,
                                                               ...) {
    static auto* const real = Real<int(int, const char*, int, ...)>("openat64");
    LUM_TAKE_MODE(flags, mode)
    return IsHitAt(EffectOfOpen(flags), directory, path) ? -1 : real(directory, path, flags, mode);
}

LUM_CALL(int, mkostemp, (char* path, int flags), (path, flags), IsHit(EffectOfOpen(O_CREAT), path), -1)
LUM_CALL(int, mkostemp64, (char* path, int flags), (path, flags), IsHit(EffectOfOpen(O_CREAT), path), -1)
LUM_CALL(DIR*, opendir, (const char* path), (path), IsHit(kOpens, path), nullptr)
LUM_CALL(FILE*, fopen, (const char* path, const char* how), (path, how),
         IsHit(EffectOfOpen(how[0] == 'r' ? 0 : O_CREAT), path), nullptr)
LUM_CALL(FILE*, fopen64, (const char* path, const char* how), (path, how),
         IsHit(EffectOfOpen(how[0] == 'r' ? 0 : O_CREAT), path), nullptr)

LUM_CALL(ssize_t, write, (int fd, const void* bytes, size_t size), (fd, bytes, size),
         IsHitOpen(kChanges | kTakesRoom, fd), -1)
LUM_CALL(ssize_t, writev, (int fd, const iovec* parts, int count), (fd, parts, count),
         IsHitOpen(kChanges | kTakesRoom, fd), -1)
LUM_CALL(ssize_t, pwrite, (int fd, const void* bytes, size_t size, off_t at), (fd, bytes, size, at),
         IsHitOpen(kChanges | kTakesRoom, fd), -1)
LUM_CALL(ssize_t, pwrite64, (int fd, const void* bytes, size_t size, off64_t at), (fd, bytes, size, at),
         IsHitOpen(kChanges | kTakesRoom, fd), -1)
LUM_CALL(ssize_t, pread, (int fd, void* bytes, size_t size, off_t at), (fd, bytes, size, at),
         IsHitOpen(kReads, fd), -1)
LUM_CALL(ssize_t, pread64, (int fd, void* bytes, size_t size, off64_t at), (fd, bytes, size, at),
         IsHitOpen(kReads, fd), -1)

LUM_CALL(int, ftruncate, (int fd, off_t size), (fd, size), IsHitOpen(kChanges, fd), -1)
LUM_CALL(int, ftruncate64, (int fd, off64_t size), (fd, size), IsHitOpen(kChanges, fd), -1)
LUM_CALL(int, posix_fallocate, (int fd, off_t at, off_t size), (fd, at, size),
         IsHitOpen(kChanges | kTakesRoom, fd), errno)
LUM_CALL(int, posix_fallocate64, (int fd, off64_t at, off64_t size), (fd, at, size),
         IsHitOpen(kChanges | kTakesRoom, fd), errno)
LUM_CALL(int, fsync, (int fd), (fd), IsHitOpen(kChanges, fd), -1)
LUM_CALL(int, fdatasync, (int fd), (fd), IsHitOpen(kChanges, fd), -1)

LUM_CALL(int, rename, (const char* from, const char* to), (from, to), IsHit(kChanges | kTakesRoom, to), -1)
LUM_CALL(int, renameat, (int fromAt, const char* from, int toAt, const char* to), (fromAt, from, toAt, to),
         IsHitAt(kChanges | kTakesRoom, toAt, to), -1)
LUM_CALL(int, renameat2, (int fromAt, const char* from, int toAt, const char* to, unsigned flags),
         (fromAt, from, toAt, to, flags), IsHitAt(kChanges | kTakesRoom, toAt, to), -1)
LUM_CALL(int, link, (const char* from, const char* to), (from, to), IsHit(kChanges | kTakesRoom, to), -1)
LUM_CALL(int, linkat, (int fromAt, const char* from, int toAt, const char* to, int flags),
         (fromAt, from, toAt, to, flags), IsHitAt(kChanges | kTakesRoom, toAt, to), -1)
LUM_CALL(int, unlink, (const char* path), (path), IsHit(kChanges, path), -1)
LUM_CALL(int, unlinkat, (int at, const char* path, int flags), (at, path, flags), IsHitAt(kChanges, at, path),
         -1)
LUM_CALL(int, rmdir, (const char* path), (path), IsHit(kChanges, path), -1)
LUM_CALL(int, mkdir, (const char* path, mode_t mode), (path, mode), IsHit(kChanges | kTakesRoom, path), -1)
LUM_CALL(int, mkdirat, (int at, const char* path, mode_t mode), (at, path, mode),
         IsHitAt(kChanges | kTakesRoom, at, path), -1)
