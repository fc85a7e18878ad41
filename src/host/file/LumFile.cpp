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

/// Creates an empty file of mode 0600 beside `path`; its path in `made`.
int CreateBeside(std::string_view path, std::string& made) {
    made = ParentOf(path).append("/").append(kUnfinishedPrefix).append("XXXXXX");
    return mkostemp(made.data(), O_CLOEXEC);
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
    std::string madePath;
    const FileDescriptor made(CreateBeside(to.View(), madePath));
    if (!made.IsOpen()) {
        return false;
    }
    ProvisionalFile provisional(madePath);
    if (!CopyContent(source.Get(), made.Get()) || fsync(made.Get()) != 0) {
        return false;
    }
    const bool placed = failIfExists ? FileRenameNew(madePath.c_str(), to.GetString())
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
