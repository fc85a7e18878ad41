#include "host/ini/internal/IniLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

IniLock::IniLock(const std::string& directory) : path_(directory + "/.ini-lock") {
    while (!TakeOnce() && file_.IsOpen()) {
    }
}

IniLock::~IniLock() {
    if (IsHeld()) {
        unlink(path_.c_str());  // before the lock goes, so that who waits for it sees that it is no longer
                                // the one
    }
}

/// False with the file open where the holder before removed the file that was waited for, and without it on
/// failure.
bool IniLock::TakeOnce() {
    file_ = FileDescriptor(open(path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    while (file_.IsOpen() && flock(file_.Get(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            file_.Close();
        }
    }
    struct stat held {};
    struct stat named {};
    return file_.IsOpen() && fstat(file_.Get(), &held) == 0 && lstat(path_.c_str(), &named) == 0 &&
           held.st_ino == named.st_ino && held.st_dev == named.st_dev;
}
