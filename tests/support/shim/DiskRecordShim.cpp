// The library that DiskRecord.h describes. A call is written down once it has been made: what a sync covers
// is what was written down before it began.

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string_view>
#include <utility>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include "support/shim/DiskRecord.h"
#include "support/shim/Interpose.h"

namespace {

using Kind = DiskCall::Kind;

std::atomic<bool> isOn{false};
std::string watched;  // this and the next stay as they are while it is on
uint32_t syncDelay = 0;
std::mutex mutex;
std::vector<DiskCall> record;  // with the mutex held

/// Keeps errno as the call left it.
class KeptError {
public:
    KeptError() = default;
    KeptError(const KeptError&) = delete;
    KeptError& operator=(const KeptError&) = delete;
    ~KeptError() { errno = error_; }

private:
    const int error_ = errno;
};

bool IsBelow(std::string_view path) {
    return path.starts_with(watched) &&
           (path.size() == watched.size() || path[watched.size()] == '/' || path[watched.size()] == ' ');
}

std::string PathOf(int fd) {
    char link[64];
    char path[4096];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const long length = syscall(SYS_readlinkat, AT_FDCWD, link, path, sizeof path);
    return length < 0 ? std::string() : std::string(path, static_cast<std::size_t>(length));
}

struct Place {
    uint64_t directory = 0;
    std::string name;
    std::string path;
};

uint64_t NumberOf(const std::string& path) {
    struct stat status {};
    return fstatat(AT_FDCWD, path.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 ? status.st_ino : 0;
}

/// Where a name is; its directory is 0 where nobody watches.
Place PlaceOf(int directory, const char* path) {
    if (!isOn) {
        return {};
    }
    const bool stands = path[0] == '/' || directory == AT_FDCWD;
    std::string whole = stands ? std::string(path) : PathOf(directory) + "/" + path;
    while (whole.ends_with('/')) {
        whole.pop_back();
    }
    if (!IsBelow(whole)) {
        return {};
    }
    const std::size_t slash = whole.rfind('/');
    return {NumberOf(whole.substr(0, slash)), whole.substr(slash + 1), whole};
}

void Add(DiskCall call) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (isOn) {
        record.push_back(std::move(call));
    }
}

/// The inode that is open as `fd`; 0 where nobody watches it.
uint64_t FileOf(int fd) {
    if (!isOn || !IsBelow(PathOf(fd))) {
        return 0;
    }
    struct stat status {};
    return fstat(fd, &status) == 0 ? status.st_ino : 0;
}

void NoteWrite(int fd, const void* bytes, ssize_t size, off64_t at) {
    const KeptError kept;
    const uint64_t file = size > 0 ? FileOf(fd) : 0;
    if (file == 0) {
        return;
    }
    // A write without a place has moved the file's position behind what it wrote.
    const off64_t offset = at >= 0 ? at : lseek64(fd, 0, SEEK_CUR) - size;
    DiskCall call{.kind = Kind::kWrite, .file = file, .offset = static_cast<uint64_t>(offset)};
    call.bytes.assign(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
    Add(std::move(call));
}

void NoteTruncation(int fd, off64_t size) {
    const KeptError kept;
    if (const uint64_t file = FileOf(fd); file != 0) {
        Add({.kind = Kind::kTruncate, .file = file, .offset = static_cast<uint64_t>(size)});
    }
}

template <class Call>
int Sync(int fd, Call real) {
    const uint64_t file = FileOf(fd);
    uint64_t before = 0;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        before = record.size();
    }
    const int status = real(fd);
    if (file != 0 && status == 0) {
        const KeptError kept;
        usleep(syncDelay);
        Add({.kind = Kind::kSync, .file = file, .offset = before});
    }
    return status;
}

void NoteMade(int directory, const char* path, Kind kind) {
    const KeptError kept;
    const Place place = PlaceOf(directory, path);
    if (place.directory != 0) {
        Add({.kind = kind, .file = NumberOf(place.path), .to = place.directory, .toName = place.name});
    }
}

/// `wasThere`: a file that was there already is not new, but may have been emptied.
void NoteOpen(int fd, int directory, const char* path, int flags, bool wasThere) {
    if (fd < 0 || (flags & O_TMPFILE) == O_TMPFILE) {
        return;
    }
    if ((flags & O_CREAT) != 0 && !wasThere) {
        NoteMade(directory, path, Kind::kMake);
    } else if ((flags & O_TRUNC) != 0) {
        NoteTruncation(fd, 0);
    }
}

bool IsThere(int directory, const char* path, int flags) {
    struct stat status {};
    const KeptError kept;
    return isOn && (flags & O_CREAT) != 0 && fstatat(directory, path, &status, AT_SYMLINK_NOFOLLOW) == 0;
}

template <class Call>
int Rename(int fromAt, const char* from, int toAt, const char* to, Call real) {
    const Place source = PlaceOf(fromAt, from);
    const uint64_t file = source.directory != 0 ? NumberOf(source.path) : 0;
    const int status = real();
    const KeptError kept;
    const Place target = PlaceOf(toAt, to);
    if (status == 0 && file != 0) {
        Add({.kind = Kind::kRename,
             .file = file,
             .from = source.directory,
             .to = target.directory,
             .fromName = source.name,
             .toName = target.name});
    }
    return status;
}

template <class Call>
int Link(int fromAt, const char* from, int toAt, const char* to, Call real) {
    const int status = real();
    const KeptError kept;
    const Place source = PlaceOf(fromAt, from);
    const Place target = PlaceOf(toAt, to);
    if (status == 0 && target.directory != 0) {
        Add({.kind = Kind::kLink,
             .file = NumberOf(source.path),
             .to = target.directory,
             .toName = target.name});
    }
    return status;
}

template <class Call>
int Remove(int directory, const char* path, Call real) {
    const Place place = PlaceOf(directory, path);
    const int status = real();
    const KeptError kept;
    if (status == 0 && place.directory != 0) {
        Add({.kind = Kind::kRemove, .from = place.directory, .fromName = place.name});
    }
    return status;
}

template <class Call>
int Open(int directory, const char* path, int flags, Call real) {
    const bool wasThere = IsThere(directory, path, flags);
    const int fd = real();
    NoteOpen(fd, directory, path, flags, wasThere);
    return fd;
}

/// Defines a call of the C library as `body`, which has it as `real`.
#define LUM_RECORDED(result, name, parameters, body)                           \
    extern "C" __attribute__((visibility("default"))) result name parameters { \
        static auto* const real = Real<result parameters>(#name);              \
        body                                                                   \
    }

}  // namespace

extern "C" __attribute__((visibility("default"))) void DiskRecordBegin(const char* directory,
                                                                       uint32_t syncMicroseconds) {
    const std::lock_guard<std::mutex> lock(mutex);
    watched = directory;
    syncDelay = syncMicroseconds;
    record.clear();
    isOn = true;
}

extern "C" __attribute__((visibility("default"))) void DiskRecordMark(const char* text) {
    Add({.kind = Kind::kMark, .bytes = text});
}

extern "C" __attribute__((visibility("default"))) void DiskRecordEnd(std::vector<DiskCall>* calls) {
    const std::lock_guard<std::mutex> lock(mutex);
    isOn = false;
    *calls = std::exchange(record, {});
}

extern "C" __attribute__((visibility("default"))) int open(const char* path, int flags, ...) {
    static auto* const real = Real<int(const char*, int, ...)>("open");
    LUM_TAKE_MODE(flags, mode)
    return Open(AT_FDCWD, path, flags, [&] { return real(path, flags, mode); });
}

extern "C" __attribute__((visibility("default"))) int open64(const char* path, int flags, ...) {
    static auto* const real = Real<int(const char*, int, ...)>("open64");
    LUM_TAKE_MODE(flags, mode)
    return Open(AT_FDCWD, path, flags, [&] { return real(path, flags, mode); });
}

extern "C" __attribute__((visibility("default"))) int openat(int directory, const char* path, int flags,
                                                             ...) {
    static auto* const real = Real<int(int, const char*, int, ...)>("openat");
    LUM_TAKE_MODE(flags, mode)
    return Open(directory, path, flags, [&] { return real(directory, path, flags, mode); });
}

extern "C" __attribute__((visibility("default"))) int openat64(int directory, const char* path, int flags,
                                                               ...) {
    static auto* const real = Real<int(int, const char*, int, ...)>("openat64");
    LUM_TAKE_MODE(flags, mode)
    return Open(directory, path, flags, [&] { return real(directory, path, flags, mode); });
}

LUM_RECORDED(int, mkostemp, (char* path, int flags), {
    const int fd = real(path, flags);
    NoteOpen(fd, AT_FDCWD, path, O_CREAT, false);
    return fd;
})
LUM_RECORDED(int, mkostemp64, (char* path, int flags), {
    const int fd = real(path, flags);
    NoteOpen(fd, AT_FDCWD, path, O_CREAT, false);
    return fd;
})

LUM_RECORDED(ssize_t, write, (int fd, const void* bytes, size_t size), {
    const ssize_t written = real(fd, bytes, size);
    NoteWrite(fd, bytes, written, -1);
    return written;
})
LUM_RECORDED(ssize_t, pwrite, (int fd, const void* bytes, size_t size, off_t at), {
    const ssize_t written = real(fd, bytes, size, at);
    NoteWrite(fd, bytes, written, at);
    return written;
})
LUM_RECORDED(ssize_t, pwrite64, (int fd, const void* bytes, size_t size, off64_t at), {
    const ssize_t written = real(fd, bytes, size, at);
    NoteWrite(fd, bytes, written, at);
    return written;
})
LUM_RECORDED(ssize_t, writev, (int fd, const iovec* parts, int count), {
    ssize_t written = 0;
    for (int i = 0; i < count; ++i) {
        const ssize_t one = write(fd, parts[i].iov_base, parts[i].iov_len);
        if (one < 0) {
            return written > 0 ? written : one;
        }
        written += one;
    }
    static_cast<void>(real);
    return written;
})
LUM_RECORDED(int, ftruncate, (int fd, off_t size), {
    const int status = real(fd, size);
    if (status == 0) {
        NoteTruncation(fd, size);
    }
    return status;
})
LUM_RECORDED(int, ftruncate64, (int fd, off64_t size), {
    const int status = real(fd, size);
    if (status == 0) {
        NoteTruncation(fd, size);
    }
    return status;
})
LUM_RECORDED(int, fsync, (int fd), { return Sync(fd, real); })
LUM_RECORDED(int, fdatasync, (int fd), { return Sync(fd, real); })

LUM_RECORDED(int, rename, (const char* from, const char* to),
             { return Rename(AT_FDCWD, from, AT_FDCWD, to, [&] { return real(from, to); }); })
LUM_RECORDED(int, renameat, (int fromAt, const char* from, int toAt, const char* to),
             { return Rename(fromAt, from, toAt, to, [&] { return real(fromAt, from, toAt, to); }); })
LUM_RECORDED(int, renameat2, (int fromAt, const char* from, int toAt, const char* to, unsigned flags),
             { return Rename(fromAt, from, toAt, to, [&] { return real(fromAt, from, toAt, to, flags); }); })
LUM_RECORDED(int, link, (const char* from, const char* to),
             { return Link(AT_FDCWD, from, AT_FDCWD, to, [&] { return real(from, to); }); })
LUM_RECORDED(int, linkat, (int fromAt, const char* from, int toAt, const char* to, int flags),
             { return Link(fromAt, from, toAt, to, [&] { return real(fromAt, from, toAt, to, flags); }); })
LUM_RECORDED(int, unlink, (const char* path), { return Remove(AT_FDCWD, path, [&] { return real(path); }); })
LUM_RECORDED(int, unlinkat, (int at, const char* path, int flags),
             { return Remove(at, path, [&] { return real(at, path, flags); }); })
LUM_RECORDED(int, rmdir, (const char* path), { return Remove(AT_FDCWD, path, [&] { return real(path); }); })
LUM_RECORDED(int, mkdir, (const char* path, mode_t mode), {
    const int status = real(path, mode);
    if (status == 0) {
        NoteMade(AT_FDCWD, path, Kind::kMakeDirectory);
    }
    return status;
})
LUM_RECORDED(int, mkdirat, (int at, const char* path, mode_t mode), {
    const int status = real(at, path, mode);
    if (status == 0) {
        NoteMade(at, path, Kind::kMakeDirectory);
    }
    return status;
})
