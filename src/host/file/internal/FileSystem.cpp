#include "host/file/internal/FileSystem.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"

bool Fail(int reason) {
    errno = reason;
    return false;
}

bool IsPath(const LumString& path) {
    if (path.IsEmpty()) {
        return Fail(ENOENT);
    }
    return path.View().find('\0') == std::string_view::npos || Fail(EINVAL);
}

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
