#include <cerrno>

#include <unistd.h>

#include "host/container/LumContainer.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "host/text/LumSystemError.h"

namespace {

constexpr std::string_view kSaveRoutine = "LumContainer::SaveToTempFile";
constexpr std::size_t kMaxFileBytes = std::size_t{64} << 20U;

}  // namespace

LumString LumContainer::SaveToTempFile() const {
    const std::string bytes = ToCbor();
    if (bytes.size() > kMaxFileBytes) {
        LumHostDebug().ErrorWithNL("%S: %ld bytes are more than the %ld that a file may have", kSaveRoutine,
                                   static_cast<int64_t>(bytes.size()), static_cast<int64_t>(kMaxFileBytes));
        return {};
    }
    LumString path;
    FileDescriptor file = OpenTempFile(path);
    if (!file.IsOpen()) {
        LumHostDebug().ErrorWithNL("%S: Failed to create a file in '%S': %S", kSaveRoutine,
                                   GetTempDirectory(), LumSystemErrorText());
        return {};
    }
    const bool isWritten = FileWriteAll(file.Get(), bytes) && ::fsync(file.Get()) == 0;
    if (!isWritten || ::close(file.Release()) != 0) {
        LumHostDebug().ErrorWithNL("%S: Failed to write '%S': %S", kSaveRoutine, path, LumSystemErrorText());
        static_cast<void>(::unlink(path.GetString()));  // the failure that made it useless is what counts
        return {};
    }
    return path;
}

bool LumContainer::LoadFromFile(const LumString& path, LumString& error) {
    std::string bytes;
    return FileRead(path, kMaxFileBytes, bytes, error) && FromCbor(bytes, error);
}
