#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"
#include "host/file/LumFile.h"
#include "host/file/internal/FileSystem.h"

struct LumDirectory {
    DIR* handle;
};

namespace {

/// A directory stream over a descriptor that it takes over.
class DirectoryStream {
public:
    explicit DirectoryStream(int fd) : handle_(fd >= 0 ? fdopendir(fd) : nullptr) {
        if (handle_ == nullptr && fd >= 0) {
            const FileDescriptor unused(fd);
        }
    }
    DirectoryStream(const DirectoryStream&) = delete;
    DirectoryStream& operator=(const DirectoryStream&) = delete;
    ~DirectoryStream() {
        const int reason = errno;
        if (handle_ != nullptr) {
            closedir(handle_);
        }
        errno = reason;
    }

    [[nodiscard]] bool IsOpen() const { return handle_ != nullptr; }
    [[nodiscard]] int Get() const { return dirfd(handle_); }
    void Rewind() { rewinddir(handle_); }

    /// The next name but "." and ".."; null at the end and, with errno set, on failure.
    const char* Next() {
        for (;;) {
            errno = 0;
            const dirent* const entry = readdir(handle_);
            if (entry == nullptr) {
                return nullptr;
            }
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..") {
                return entry->d_name;
            }
        }
    }

private:
    DIR* handle_;
};

bool IsDirectory(const char* path) {
    struct stat status {};
    return stat(path, &status) == 0 && (S_ISDIR(status.st_mode) || Fail(ENOTDIR));
}

/// Makes one directory, its entry in the parent synced; true also where it is there already.
bool MakeDirectory(const std::string& path) {
    if (mkdir(path.c_str(), 0700) != 0) {
        const int reason = errno;
        return IsDirectory(path.c_str()) || (reason != EEXIST && Fail(reason));
    }
    // Who may write into a directory need not be allowed to read it, and cannot sync it then.
    return SyncDirectory(ParentOf(path)) || errno == EACCES;
}

bool IsGone(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

/// Drops what a path may end in without meaning anything else: "/" and "/.".
std::string_view WithoutTail(std::string_view path) {
    while (path.size() > 1 && (path.ends_with('/') || path.ends_with("/."))) {
        path.remove_suffix(1);
    }
    return path;
}

bool HasParentComponent(std::string_view path) {
    for (std::size_t from = 0; from <= path.size();) {
        const std::size_t end = std::min(path.find('/', from), path.size());
        if (path.substr(from, end - from) == "..") {
            return true;
        }
        from = end + 1;
    }
    return false;
}

/// Deletes one entry of a directory; one that is gone already counts as deleted. False, with ENOTEMPTY, for a
/// directory with something in it.
bool UnlinkEntry(int directory, const char* name) {
    if (unlinkat(directory, name, 0) == 0 || errno == ENOENT) {
        return true;
    }
    if (errno == EISDIR) {
        return unlinkat(directory, name, AT_REMOVEDIR) == 0 || errno == ENOENT ||
               (errno == EEXIST && Fail(ENOTEMPTY));
    }
    return false;
}

/// Moves an entry of `from` into `root` under a name that is free there.
bool Hoist(int from, const char* name, int root, uint64_t& serial) {
    for (;;) {
        const std::string fresh = ".lum-deleted-" + std::to_string(++serial);
        if (renameat2(from, name, root, fresh.c_str(), RENAME_NOREPLACE) == 0) {
            return true;
        }
        if (errno != EEXIST) {
            return false;
        }
    }
}

/// Empties one directory of `root` but hoists its own directories into `root`, then deletes it.
bool Flatten(int root, const char* name, uint64_t& serial) {
    DirectoryStream stream(openat(root, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!stream.IsOpen()) {
        return false;
    }
    while (const char* const entry = stream.Next()) {
        if (!UnlinkEntry(stream.Get(), entry) &&
            (errno != ENOTEMPTY || !Hoist(stream.Get(), entry, root, serial))) {
            return false;
        }
    }
    return errno == 0 && unlinkat(root, name, AT_REMOVEDIR) == 0;
}

/// Deletes everything in `root`. Directories are hoisted to its own level instead of being descended into, so
/// a tree of any depth takes two descriptors, and no path through it is ever walked.
bool EmptyDirectory(DirectoryStream& root) {
    uint64_t serial = 0;
    for (bool found = true; found; root.Rewind()) {
        found = false;
        while (const char* const name = root.Next()) {
            found = true;
            if (!UnlinkEntry(root.Get(), name) &&
                (errno != ENOTEMPTY || !Flatten(root.Get(), name, serial))) {
                return false;
            }
        }
        if (errno != 0) {
            return false;
        }
    }
    return true;
}

bool DeleteTree(const std::string& path) {
    DirectoryStream root(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return root.IsOpen() && EmptyDirectory(root) && rmdir(path.c_str()) == 0;
}

bool Delete(const LumString& path, bool recursive, bool force) {
    if (!IsPath(path)) {
        return false;
    }
    const std::string plain(WithoutTail(path.View()));
    if (plain == "/" || plain == "." || HasParentComponent(plain)) {
        return Fail(EINVAL);
    }
    const bool deleted = recursive ? DeleteTree(plain) : rmdir(plain.c_str()) == 0;
    return deleted || (force && errno == ENOENT && IsGone(plain));
}

}  // namespace

bool PathCreate(const LumString& path) {
    if (!IsPath(path)) {
        return false;
    }
    const std::string whole(path.View());
    for (std::size_t end = 0; end < whole.size();) {
        end = std::min(whole.find('/', end + 1), whole.size());
        if (!MakeDirectory(whole.substr(0, end))) {
            return false;
        }
    }
    return true;
}

bool DirExists(const LumString& path) {
    return IsPath(path) && IsDirectory(path.GetString());
}

bool DirDelete(const LumString& path, bool recursive, bool force) {
    try {
        return Delete(path, recursive, force);
    } catch (const std::bad_alloc&) {
        return Fail(ENOMEM);  // callers delete what has no owner any more, and go on whatever comes of it
    }
}

void DirRemoveLeftovers(const LumString& path) {
    DirectoryStream directory(IsPath(path) ? open(path.GetString(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1);
    while (const char* const name = directory.IsOpen() ? directory.Next() : nullptr) {
        if (std::string_view(name).starts_with(kUnfinishedPrefix)) {
            unlinkat(directory.Get(), name, 0);  // one that cannot be deleted harms nobody
        }
    }
}

LumDirectory* OpenDirectory(const LumString& path) {
    if (!IsPath(path)) {
        return nullptr;
    }
    // Made before it is opened, so that nothing stays open where there is no memory for it.
    auto directory = std::make_unique<LumDirectory>();
    directory->handle = opendir(path.GetString());
    return directory->handle != nullptr ? directory.release() : nullptr;
}

bool ReadDirectory(LumDirectory* directory, LumString& name) {
    const dirent* const entry = directory != nullptr ? readdir(directory->handle) : nullptr;
    if (entry == nullptr) {
        return false;
    }
    name = entry->d_name;
    return true;
}

void CloseDirectory(LumDirectory* directory) {
    const std::unique_ptr<LumDirectory> owned(directory);
    if (owned != nullptr) {
        closedir(owned->handle);
    }
}
