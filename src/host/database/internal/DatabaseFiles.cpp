#include "host/database/internal/DatabaseFiles.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "host/text/LumSystemError.h"

namespace {

constexpr mode_t kOwnerAlone = S_IRUSR | S_IWUSR;
/// Longer than any file system takes between two times that differ.
constexpr int64_t kYoungSeconds = 3;

std::string SystemReason(int error) {
    return LumSystemErrorText(error).GetString();
}

/// What others may do with a file of an earlier release is taken from them. One that belongs to somebody else
/// stays as it is; whether it can be used shows when it is opened.
void KeepForOwner(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
        (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        static_cast<void>(chmod(path.c_str(), kOwnerAlone));
    }
}

}  // namespace

DatabaseFiles::DatabaseFiles(std::string path) : path_(std::move(path)) {}

bool DatabaseFiles::Prepare(std::string& reason) {
    // SQLite would give a new file the mode of the process, and a pipe could hold it for ever.
    const int file = open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerAlone);
    if (file >= 0) {
        close(file);
        FindNames();
        return true;
    }
    struct stat status {};
    if (errno != EEXIST || stat(path_.c_str(), &status) != 0) {
        reason = SystemReason(errno);
        return false;
    }
    if (S_ISDIR(status.st_mode)) {
        reason = SystemReason(EISDIR);
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        reason = "Not a regular file";
        return false;
    }
    FindNames();
    for (const std::string& name : names_) {
        KeepForOwner(name);
    }
    return true;
}

/// The log lies beside the database itself, which a link may lead to.
void DatabaseFiles::FindNames() {
    const std::unique_ptr<char, void (*)(void*)> resolved(realpath(path_.c_str(), nullptr), std::free);
    const std::string name = resolved != nullptr ? resolved.get() : path_;
    names_ = {name, name + "-wal", name + "-shm"};
    struct stat status {};
    const bool isLink = lstat(path_.c_str(), &status) != 0 || S_ISLNK(status.st_mode);
    const std::size_t slash = path_.rfind('/');
    directory_ = isLink || slash == std::string::npos ? std::string() : path_.substr(0, slash + 1);
    seen_ = {};
}

/// Leaves the times out: once they were asked for, the next write has to make a new one, and the sync of the
/// log took half as long again.
DatabaseFiles::Identity DatabaseFiles::Look(const std::string& path) {
    struct statx status {};
    if (statx(AT_FDCWD, path.c_str(), 0, STATX_INO, &status) != 0) {
        return {};
    }
    return {makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino};
}

void DatabaseFiles::Remember() {
    for (std::size_t i = 0; i < kFiles; ++i) {
        known_[i] = Look(names_[i]);
    }
}

DatabaseFiles::Stamp DatabaseFiles::LookAtDirectory() const {
    struct stat status {};
    if (directory_.empty() || stat(directory_.c_str(), &status) != 0) {
        return {};
    }
    return {{status.st_dev, status.st_ino}, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

bool DatabaseFiles::CanBeWritten() const {
    const int file = open(path_.c_str(), O_RDWR | O_CLOEXEC);
    return file >= 0 && close(file) == 0;
}

bool DatabaseFiles::AreInPlace() {
    const Stamp now = LookAtDirectory();
    if (!(now == Stamp{}) && now == seen_) {
        return true;
    }
    const bool areInPlace = LookAtFiles();
    // A later change may get the same time while the time is young.
    const bool isSettled = areInPlace && now.seconds + kYoungSeconds < std::time(nullptr);
    seen_ = isSettled ? now : Stamp{};
    return areInPlace;
}

bool DatabaseFiles::LookAtFiles() {
    for (std::size_t i = 0; i < kFiles; ++i) {
        const Identity now = Look(i == 0 ? path_ : names_[i]);
        // SQLite makes the log and its index when they are first needed.
        if (known_[i] == Identity{}) {
            known_[i] = now;
        }
        if (!(known_[i] == now)) {
            return false;
        }
    }
    return true;
}
