#include <cerrno>
#include <system_error>

#include <unistd.h>

#include "host/container/LumContainer.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"

namespace {

constexpr std::string_view kSaveRoutine = "LumContainer::SaveToTempFile";
constexpr std::size_t kMaxFileBytes = std::size_t{64} << 20U;

bool WriteAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    return true;
}

std::string ReasonOf(int number) {
    return std::generic_category().message(number);
}

}  // namespace

LumString LumContainer::SaveToTempFile() const {
    const std::string bytes = ToCbor();
    LumString path;
    const int file = OpenTempFile(path);
    if (file < 0) {
        LumHostDebug().ErrorWithNL("%S: Failed to create a file in '%S': %s", kSaveRoutine,
                                   GetTempDirectory(), ReasonOf(errno).c_str());
        return {};
    }
    int failure = WriteAll(file, bytes) && ::fsync(file) == 0 ? 0 : errno;
    if (::close(file) != 0 && failure == 0) {
        failure = errno;
    }
    if (failure != 0) {
        static_cast<void>(::unlink(path.GetString()));  // the failure that made it useless is what counts
        LumHostDebug().ErrorWithNL("%S: Failed to write '%S': %s", kSaveRoutine, path,
                                   ReasonOf(failure).c_str());
        return {};
    }
    return path;
}

bool LumContainer::LoadFromFile(const LumString& path, LumString& error) {
    std::string bytes;
    return FileRead(path, kMaxFileBytes, bytes, error) && FromCbor(bytes, error);
}
