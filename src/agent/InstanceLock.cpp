#include "agent/InstanceLock.h"

#include <cerrno>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "host/text/LumSystemError.h"

namespace {

/// The process number that the holder of the lock has left in its file, or 0.
int32_t ReadHolder(int file) {
    char text[16] = {};
    const ssize_t length = ::pread(file, text, sizeof(text) - 1, 0);
    return length > 0 ? LumString(text).ToInt() : 0;
}

}  // namespace

bool InstanceLock::Take(const LumString& dataDirectory, LumString& error) {
    const LumString path = dataDirectory + "agent.lock";
    FileDescriptor file(::open(path.GetString(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file.IsOpen()) {
        error.Printf("Cannot open %S: %S", path, LumSystemErrorText());
        return false;
    }
    if (::flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
        const int reason = errno;
        if (reason == EWOULDBLOCK) {
            error.Printf("Another agent (process %d) is running on the data directory %S",
                         ReadHolder(file.Get()), dataDirectory);
        } else {
            error.Printf("Cannot lock %S: %S", path, LumSystemErrorText(reason));
        }
        return false;
    }
    const std::string number = std::to_string(::getpid()) + "\n";
    // The number only serves the message above: on a full disk the lock alone will do.
    static_cast<void>(::ftruncate(file.Get(), 0) == 0 &&
                      ::pwrite(file.Get(), number.data(), number.size(), 0) >= 0);
    file_ = std::move(file);
    return true;
}
