#include "host/file/LumFile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"
#include "host/file/internal/FileSystem.h"
#include "host/text/LumSystemError.h"

namespace {

/// An empty file of mode 0600 beside the one that it is to become, deleted again unless it was kept.
class ProvisionalFile {
public:
    explicit ProvisionalFile(std::string_view path) : parent_(ParentOf(path)) {
        made_.append(parent_).append("/").append(kUnfinishedPrefix).append("XXXXXX");
        file_ = FileDescriptor(mkostemp(made_.data(), O_CLOEXEC));
    }
    ProvisionalFile(const ProvisionalFile&) = delete;
    ProvisionalFile& operator=(const ProvisionalFile&) = delete;
    ~ProvisionalFile() {
        const int reason = errno;
        if (file_.IsOpen() && !kept_) {
            unlink(made_.c_str());
        }
        errno = reason;
    }

    [[nodiscard]] bool IsOpen() const { return file_.IsOpen(); }
    [[nodiscard]] int Get() const { return file_.Get(); }
    [[nodiscard]] const char* Path() const { return made_.c_str(); }
    /// The directory of both.
    [[nodiscard]] const std::string& Parent() const { return parent_; }

    void Keep() { kept_ = true; }

private:
    const std::string parent_;
    std::string made_;
    FileDescriptor file_;
    bool kept_ = false;
};

/// Reads what there is, up to `size` bytes; 0 at the end, -1 on failure.
ssize_t ReadSome(int fd, char* buffer, std::size_t size) {
    ssize_t count = 0;
    do {
        count = read(fd, buffer, size);
    } while (count < 0 && errno == EINTR);
    return count;
}

/// Opens a regular file for reading without waiting for anyone; -1, with errno, where it is not one.
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

bool CopyContent(int from, int to) {
    std::string buffer(std::size_t{1} << 16U, '\0');
    for (;;) {
        const ssize_t count = ReadSome(from, buffer.data(), buffer.size());
        if (count <= 0) {
            return count == 0;
        }
        if (!FileWriteAll(to, std::string_view(buffer).substr(0, static_cast<std::size_t>(count)))) {
            return false;
        }
    }
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
    return FileWriteAll(made, content) && fsync(made) == 0;
}

bool ReplaceFile(const std::string& path, std::string_view content) {
    ProvisionalFile made(path);
    if (!made.IsOpen() || !FillReplacement(made.Get(), path, content) ||
        rename(made.Path(), path.c_str()) != 0) {
        return false;
    }
    made.Keep();
    return SyncDirectory(made.Parent());
}

}  // namespace

bool FileWriteAll(int fd, std::string_view content) {
    while (!content.empty()) {
        const ssize_t written = write(fd, content.data(), content.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        content.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    return true;
}

bool FileRenameNew(const char* from, const char* to) {
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) {
        return true;
    }
    // Not every file system knows the flag; a second name is as good, as it is never given over another.
    return errno == EINVAL && link(from, to) == 0 && unlink(from) == 0;
}

bool FileCopy(const LumString& from, const LumString& to, bool failIfExists) {
    if (!IsPath(from) || !IsPath(to)) {
        return false;
    }
    const FileDescriptor source(OpenRegular(from.GetString()));
    if (!source.IsOpen()) {
        return false;
    }
    ProvisionalFile made(to.View());
    if (!made.IsOpen() || !CopyContent(source.Get(), made.Get()) || fsync(made.Get()) != 0) {
        return false;
    }
    const bool placed =
        failIfExists ? FileRenameNew(made.Path(), to.GetString()) : rename(made.Path(), to.GetString()) == 0;
    if (!placed) {
        return false;
    }
    made.Keep();
    return SyncDirectory(made.Parent());
}

bool FileMove(const LumString& from, const LumString& to) {
    if (!IsPath(from) || !IsPath(to)) {
        return false;
    }
    const FileDescriptor file(OpenRegular(from.GetString()));
    return file.IsOpen() && fsync(file.Get()) == 0 && FileRenameNew(from.GetString(), to.GetString()) &&
           SyncDirectory(ParentOf(to.View()));
}

bool FileDelete(const LumString& path, bool missingIsDeleted) {
    return IsPath(path) && (unlink(path.GetString()) == 0 || (missingIsDeleted && errno == ENOENT));
}

bool FileDeleteForGood(const LumString& path) {
    return FileDelete(path, false) && SyncDirectory(ParentOf(path.View()));
}

bool IsRegularFile(const LumString& path) {
    struct stat status {};
    return IsPath(path) && lstat(path.GetString(), &status) == 0 && S_ISREG(status.st_mode);
}

bool FileRead(const LumString& path, std::size_t maxBytes, std::string& content, LumString& error) {
    const FileDescriptor file(IsPath(path) ? OpenRegular(path.GetString()) : -1);
    if (!file.IsOpen()) {
        error = errno == EINVAL ? LumString("Not a regular file") : LumSystemErrorText();
        return false;
    }
    std::string read;
    char buffer[1U << 14U];
    for (;;) {
        const ssize_t count = ReadSome(file.Get(), buffer, sizeof buffer);
        if (count < 0) {
            error = LumSystemErrorText();
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
    error = LumSystemErrorText();
    return false;
}
