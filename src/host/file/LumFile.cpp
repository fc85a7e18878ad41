#include "host/file/LumFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"

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

/// A file that is deleted again unless it was kept.
class ProvisionalFile {
public:
    explicit ProvisionalFile(const std::string& path) : path_(path) {}
    ProvisionalFile(const ProvisionalFile&) = delete;
    ProvisionalFile& operator=(const ProvisionalFile&) = delete;
    ~ProvisionalFile() {
        const int reason = errno;
        if (!path_.empty()) {
            unlink(path_.c_str());
        }
        errno = reason;
    }

    void Keep() { path_.clear(); }

private:
    std::string path_;
};

bool Fail(int reason) {
    errno = reason;
    return false;
}

LumString ReasonText() {
    return LumString(std::generic_category().message(errno));
}

/// False, with errno, for a text that the system would not read whole.
bool IsPath(const LumString& path) {
    if (path.IsEmpty()) {
        return Fail(ENOENT);
    }
    return path.View().find('\0') == std::string_view::npos || Fail(EINVAL);
}

bool IsDirectory(const char* path) {
    struct stat status {};
    return stat(path, &status) == 0 && (S_ISDIR(status.st_mode) || Fail(ENOTDIR));
}

/// The directory in which the last component of `path` lies.
std::string ParentOf(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) {
        return ".";
    }
    return std::string(path.substr(0, std::max<std::size_t>(slash, 1)));
}

bool SyncDirectory(const std::string& path) {
    const FileDescriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return directory.IsOpen() && fsync(directory.Get()) == 0;
}

bool WriteAll(int fd, std::string_view content) {
    while (!content.empty()) {
        const ssize_t written = write(fd, content.data(), content.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        content.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    return true;
}

/// Reads until `buffer` is full or the file ends; -1 on failure.
ssize_t ReadSome(int fd, char* buffer, std::size_t size) {
    ssize_t count = 0;
    do {
        count = read(fd, buffer, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

/// Opens a regular file for reading without waiting for anyone; -1, with errno, where it is none.
int OpenRegular(const char* path) {
    FileDescriptor file(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
        return -1;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return -1;
    }
    return file.Release();
}

/// Creates an empty file of mode 0600 beside `path`; its path in `made`.
int CreateBeside(std::string_view path, std::string& made) {
    made = ParentOf(path) + "/.lum-XXXXXX";
    return mkostemp(made.data(), O_CLOEXEC);
}

/// Renames within a file system unless the target exists.
bool RenameNew(const char* from, const char* to) {
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) {
        return true;
    }
    // Not every file system knows the flag; a second name is as good, as it is never given over another.
    return errno == EINVAL && link(from, to) == 0 && unlink(from) == 0;
}

bool CopyContent(int from, int to) {
    std::string buffer(std::size_t{1} << 16U, '\0');
    for (;;) {
        const ssize_t count = ReadSome(from, buffer.data(), buffer.size());
        if (count <= 0) {
            return count == 0;
        }
        if (!WriteAll(to, std::string_view(buffer).substr(0, static_cast<std::size_t>(count)))) {
            return false;
        }
    }
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

/// Deletes one entry of a directory that is no directory with something in it; false, with ENOTEMPTY, where
/// it is one.
bool UnlinkEntry(int directory, const char* name) {
    if (unlinkat(directory, name, 0) == 0) {
        return true;
    }
    if (errno == EISDIR) {
        return unlinkat(directory, name, AT_REMOVEDIR) == 0 || (errno == EEXIST && Fail(ENOTEMPTY));
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

/// Fills `made` with what replaces `path`: the content, the mode and where possible the owner.
bool FillReplacement(int made, const std::string& path, std::string_view content) {
    struct stat old {};
    if (lstat(path.c_str(), &old) == 0 && !S_ISLNK(old.st_mode)) {
        if (!S_ISREG(old.st_mode)) {
            return Fail(S_ISDIR(old.st_mode) ? EISDIR : EINVAL);
        }
        // Only a privileged process may give a file away; any other goes on under its own name.
        if (fchown(made, old.st_uid, old.st_gid) != 0 && errno != EPERM) {
            return false;
        }
        if (fchmod(made, old.st_mode & 07777U) != 0) {
            return false;
        }
    }
    return WriteAll(made, content) && fsync(made) == 0;
}

bool ReplaceFile(const std::string& path, std::string_view content) {
    std::string madePath;
    const FileDescriptor made(CreateBeside(path, madePath));
    if (!made.IsOpen()) {
        return false;
    }
    ProvisionalFile provisional(madePath);
    if (!FillReplacement(made.Get(), path, content) || rename(madePath.c_str(), path.c_str()) != 0) {
        return false;
    }
    provisional.Keep();
    return SyncDirectory(ParentOf(path));
}

std::mutex tempMutex;
/// To be called with tempMutex held.
std::string& TempDirectory() {
    // Never destroyed: threads may still ask while the process ends.
    alignas(std::string) static unsigned char place[sizeof(std::string)];
    static std::string* const directory = [] {
        std::error_code error;
        const std::filesystem::path path = std::filesystem::temp_directory_path(error);
        return new (place) std::string(error ? "/tmp" : path.string());
    }();
    return *directory;
}

}  // namespace

bool PathCreate(const LumString& path) {
    if (!IsPath(path)) {
        return false;
    }
    const std::string whole(path.View());
    for (std::size_t end = 0; end < whole.size();) {
        end = std::min(whole.find('/', end + 1), whole.size());
        const std::string prefix = whole.substr(0, end);
        if (mkdir(prefix.c_str(), 0700) != 0 && !IsDirectory(prefix.c_str())) {
            return false;
        }
    }
    return true;
}

bool DirExists(const LumString& path) {
    return IsPath(path) && IsDirectory(path.GetString());
}

bool DirDelete(const LumString& path, bool recursive, bool force) {
    if (!IsPath(path)) {
        return false;
    }
    const std::string plain(WithoutTail(path.View()));
    if (plain == "/" || plain == "." || HasParentComponent(plain)) {
        return Fail(EINVAL);
    }
    const bool deleted = recursive ? DeleteTree(plain) : rmdir(plain.c_str()) == 0;
    return deleted || (force && errno == ENOENT);
}

bool FileCopy(const LumString& from, const LumString& to, bool failIfExists) {
    if (!IsPath(from) || !IsPath(to)) {
        return false;
    }
    const FileDescriptor source(OpenRegular(from.GetString()));
    if (!source.IsOpen()) {
        return false;
    }
    std::string madePath;
    const FileDescriptor made(CreateBeside(to.View(), madePath));
    if (!made.IsOpen()) {
        return false;
    }
    ProvisionalFile provisional(madePath);
    if (!CopyContent(source.Get(), made.Get()) || fsync(made.Get()) != 0) {
        return false;
    }
    const bool placed = failIfExists ? RenameNew(madePath.c_str(), to.GetString())
                                     : rename(madePath.c_str(), to.GetString()) == 0;
    if (!placed) {
        return false;
    }
    provisional.Keep();
    return SyncDirectory(ParentOf(to.View()));
}

bool FileMove(const LumString& from, const LumString& to) {
    if (!IsPath(from) || !IsPath(to)) {
        return false;
    }
    const FileDescriptor file(OpenRegular(from.GetString()));
    return file.IsOpen() && fsync(file.Get()) == 0 && RenameNew(from.GetString(), to.GetString()) &&
           SyncDirectory(ParentOf(to.View()));
}

bool FileDelete(const LumString& path, bool missingIsDeleted) {
    return IsPath(path) && (unlink(path.GetString()) == 0 || (missingIsDeleted && errno == ENOENT));
}

LumDirectory* OpenDirectory(const LumString& path) {
    DIR* const handle = IsPath(path) ? opendir(path.GetString()) : nullptr;
    return handle != nullptr ? std::make_unique<LumDirectory>(LumDirectory{handle}).release() : nullptr;
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

bool IsRegularFile(const LumString& path) {
    struct stat status {};
    return IsPath(path) && lstat(path.GetString(), &status) == 0 && S_ISREG(status.st_mode);
}

bool FileRead(const LumString& path, std::size_t maxBytes, std::string& content, LumString& error) {
    const FileDescriptor file(IsPath(path) ? OpenRegular(path.GetString()) : -1);
    if (!file.IsOpen()) {
        error = errno == EINVAL ? LumString("Not a regular file") : ReasonText();
        return false;
    }
    std::string read;
    char buffer[1U << 14U];
    for (;;) {
        const ssize_t count = ReadSome(file.Get(), buffer, sizeof buffer);
        if (count < 0) {
            error = ReasonText();
            return false;
        }
        if (count == 0) {
            content = std::move(read);
            return true;
        }
        if (read.size() + static_cast<std::size_t>(count) > maxBytes) {
            error.Printf("Larger than %ld bytes", static_cast<int64_t>(maxBytes));
            return Fail(EFBIG);
        }
        read.append(buffer, static_cast<std::size_t>(count));
    }
}

bool FileReplace(const LumString& path, std::string_view content, LumString& error) {
    if (IsPath(path) && ReplaceFile(std::string(path.View()), content)) {
        return true;
    }
    error = ReasonText();
    return false;
}

void SetTempDirectory(const LumString& path) {
    const std::lock_guard<std::mutex> guard(tempMutex);
    TempDirectory() = path.View();
}

LumString GetTempDirectory() {
    const std::lock_guard<std::mutex> guard(tempMutex);
    return LumString(std::string_view(TempDirectory()));
}

int OpenTempFile(LumString& path) {
    std::string made(GetTempDirectory().View());
    made += "/lum-XXXXXX";
    const int fd = mkostemp(made.data(), O_CLOEXEC);
    if (fd >= 0) {
        path = LumString(std::move(made));
    }
    return fd;
}
