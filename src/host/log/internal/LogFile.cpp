#include "host/log/internal/LogFile.h"

#include <cerrno>
#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/file/LumFile.h"
#include "host/log/internal/LineFormat.h"

LogFile::LogFile(std::string path, std::size_t maxBytes, std::size_t maxFiles)
    : path_(std::move(path)), maxBytes_(maxBytes), maxFiles_(maxFiles) {
    set_formatter(MakeLineFormatter());
}

bool LogFile::Open() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return Reopen();
}

void LogFile::sink_it_(const spdlog::details::log_msg& message) {
    spdlog::memory_buf_t line;
    formatter_->format(message, line);
    if (size_ > 0 && size_ + line.size() > maxBytes_) {
        Rotate();
    }
    if ((!file_.IsOpen() || IsRemoved()) && !Reopen() && !(MakeDirectory() && Reopen())) {
        return;
    }
    const ssize_t written = write(file_.Get(), line.data(), line.size());
    if (written == static_cast<ssize_t>(line.size())) {
        size_ += line.size();
    } else if (written > 0 && ftruncate(file_.Get(), static_cast<off_t>(size_)) != 0) {
        // The disk is full and half a line stays: the next one will stand after it.
        size_ += static_cast<std::size_t>(written);
    }
}

bool LogFile::Reopen() {
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | O_NOFOLLOW;
    file_ = FileDescriptor(open(path_.c_str(), kFlags, 0600));
    struct stat status {};
    if (!file_.IsOpen() || fstat(file_.Get(), &status) != 0) {
        return false;
    }
    if (!S_ISREG(status.st_mode) || status.st_nlink != 1) {
        file_.Close();
        errno = S_ISREG(status.st_mode) ? EMLINK : EINVAL;
        return false;
    }
    size_ = static_cast<std::size_t>(status.st_size);
    return fchmod(file_.Get(), 0600) == 0;
}

/// False where the directory is there already, or cannot be made.
bool LogFile::MakeDirectory() const {
    const std::size_t slash = path_.rfind('/');
    return errno == ENOENT && slash != std::string::npos && PathCreate(LumString(path_.substr(0, slash)));
}

bool LogFile::IsRemoved() const {
    struct stat status {};
    return fstat(file_.Get(), &status) == 0 && status.st_nlink == 0;
}

void LogFile::Rotate() {
    file_.Close();
    for (std::size_t i = maxFiles_; i > 0; --i) {
        const std::string from = i > 1 ? path_ + "." + std::to_string(i - 1) : path_;
        // A number that is not there yet is not a failure, and for any other there is nobody to tell.
        static_cast<void>(std::rename(from.c_str(), (path_ + "." + std::to_string(i)).c_str()));
    }
    if (maxFiles_ == 0) {
        unlink(path_.c_str());
    }
}
