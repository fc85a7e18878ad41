#include "agent/InstanceLock.h"

#include <cerrno>
#include <string>

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

/// False, with the reason in `error`, where another agent has the lock or the system refuses it. `holder` is
/// the file with the number of that agent.
bool Lock(const FileDescriptor& what, const LumString& path, int holder, const LumString& dataDirectory,
          LumString& error) {
    if (::flock(what.Get(), LOCK_EX | LOCK_NB) == 0) {
        return true;
    }
    if (errno == EWOULDBLOCK) {
        error.Printf("Another agent (process %d) is running on the data directory %S", ReadHolder(holder),
                     dataDirectory);
    } else {
        error.Printf("Cannot lock %S: %S", path, LumSystemErrorText());
    }
    return false;
}

/// False, with the reason in `error`, where it cannot be opened.
bool Open(const LumString& path, int flags, FileDescriptor& descriptor, LumString& error) {
    descriptor = FileDescriptor(::open(path.GetString(), flags | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!descriptor.IsOpen()) {
        error.Printf("Cannot open %S: %S", path, LumSystemErrorText());
    }
    return descriptor.IsOpen();
}

}  // namespace

bool InstanceLock::Take(const LumString& dataDirectory, LumString& error) {
    const LumString path = dataDirectory + "agent.lock";
    FileDescriptor directory;
    FileDescriptor file;
    if (!Open(dataDirectory, O_RDONLY | O_DIRECTORY, directory, error) ||
        !Open(path, O_RDWR | O_CREAT, file, error) ||
        !Lock(directory, dataDirectory, file.Get(), dataDirectory, error) ||
        !Lock(file, path, file.Get(), dataDirectory, error)) {
        return false;
    }
    const std::string number = std::to_string(::getpid()) + "\n";
    // The number only serves the message above: on a full disk the locks alone will do.
    static_cast<void>(::ftruncate(file.Get(), 0) == 0 &&
                      ::pwrite(file.Get(), number.data(), number.size(), 0) >= 0);
    directory_ = std::move(directory);
    file_ = std::move(file);
    return true;
}
