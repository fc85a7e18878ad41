#include "machine/measures/ProcFile.h"

#include <cerrno>
#include <cstddef>

#include "host/file/LumFile.h"

bool ReadProcFile(const char* path, std::string& content, LumString& error) {
    constexpr std::size_t kMaxBytes = std::size_t{4} << 20U;
    LumString reason;
    const bool isRead = FileRead(path, kMaxBytes, content, reason);
    if (!isRead) {
        error.Printf("%s: %S", path, errno == EFBIG ? LumString("it is over 4 MiB") : reason);
    }
    return isRead;
}
