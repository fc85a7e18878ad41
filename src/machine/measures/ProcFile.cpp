#include "machine/measures/ProcFile.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"
#include "host/text/LumSystemError.h"

bool ReadProcFile(const char* path, std::string& content, LumString& error) {
    constexpr std::size_t kMaxBytes = std::size_t{4} << 20U;
    const FileDescriptor file(::open(path, O_RDONLY | O_CLOEXEC));
    std::string read;
    std::array<char, 4096> buffer{};
    ssize_t count = file.IsOpen() ? 1 : -1;
    while (count > 0 && read.size() <= kMaxBytes) {
        count = ::read(file.Get(), buffer.data(), buffer.size());
        read.append(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    if (count != 0) {
        error.Printf("%s: %S", path, count < 0 ? LumSystemErrorText() : LumString("it is over 4 MiB"));
        return false;
    }
    content = std::move(read);
    return true;
}
