#include "machine/PositionFile.h"

#include <cerrno>
#include <string_view>
#include <utility>

#include "host/file/LumFile.h"
#include "machine/source/MachineLog.h"

namespace {

constexpr std::size_t kMaxBytes = std::size_t{1} << 20U;

}  // namespace

bool PositionFile::Load(std::string& position) const {
    std::string content;
    LumString error;
    if (!FileRead(path_, kMaxBytes, content, error)) {
        if (errno != ENOENT) {
            MachineDebug.WarningWithNL("%S: Failed to read the position, %S",
                                       std::string_view("PositionFile::Load"), error);
        }
        return false;
    }
    position = std::move(content);
    return true;
}

bool PositionFile::Save(const std::string& position) {
    LumString error;
    const bool isSaved = FileReplace(path_, position, error);
    if (!isSaved && !hasFailed_) {
        MachineDebug.WarningWithNL("%S: Failed to write the position, %S",
                                   std::string_view("PositionFile::Save"), error);
    }
    hasFailed_ = !isSaved;
    return isSaved;
}
