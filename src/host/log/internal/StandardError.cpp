#include "host/log/internal/StandardError.h"

#include <cerrno>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"
#include "host/log/internal/LineFormat.h"

namespace {

/// How long a reader may take before lines are left out.
constexpr int kPatienceMs = 1000;

bool IsReadySoon(int waitMs) {
    pollfd ready{STDERR_FILENO, POLLOUT, 0};
    return poll(&ready, 1, waitMs) == 1;
}

/// Writes as much as there is room for; -1, with errno, for nothing. Standard error itself stays as it is:
/// other processes may share it, and whether writing to it waits would change for them too.
ssize_t WriteSome(std::string_view text) {
    struct stat status {};
    if (fstat(STDERR_FILENO, &status) != 0) {
        return -1;
    }
    if (S_ISSOCK(status.st_mode)) {
        return send(STDERR_FILENO, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    if (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode)) {
        const FileDescriptor again(open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (again.IsOpen()) {
            return write(again.Get(), text.data(), text.size());
        }
        if (!IsReadySoon(0)) {
            errno = EAGAIN;
            return -1;
        }
    }
    return write(STDERR_FILENO, text.data(), text.size());
}

/// True where standard error is the journal: then JOURNAL_STREAM names its device and inode
/// (systemd.exec(5)).
bool IsJournal() {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    if (stream == nullptr || fstat(STDERR_FILENO, &status) != 0) {
        return false;
    }
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == stream;
}

}  // namespace

StandardError::StandardError() {
    set_formatter(MakeLineFormatter(IsJournal()));
}

void StandardError::sink_it_(const spdlog::details::log_msg& message) {
    spdlog::memory_buf_t lines;
    if (isTorn_) {
        lines.push_back('\n');
    }
    if (leftOut_ > 0) {
        const std::string text = "warning Host " + std::to_string(leftOut_) +
                                 " lines were left out here, as nobody read standard error";
        formatter_->format({spdlog::string_view_t(), spdlog::level::info, text}, lines);
    }
    formatter_->format(message, lines);
    leftOut_ = Send({lines.data(), lines.size()}) ? 0 : leftOut_ + 1;
}

/// False, with isTorn_ where some of it is written, for a text that cannot be written whole.
bool StandardError::Send(std::string_view text) {
    const bool mayWait = leftOut_ == 0;
    while (!text.empty()) {
        const ssize_t written = WriteSome(text);
        if (written > 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
            isTorn_ = !text.empty();
        } else if (written == 0 ||
                   (errno != EINTR && (errno != EAGAIN || !mayWait || !IsReadySoon(kPatienceMs)))) {
            return false;
        }
    }
    return true;
}
