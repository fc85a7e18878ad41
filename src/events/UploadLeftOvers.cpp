#include "events/UploadLeftOvers.h"

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>

#include "contract/ContainerKeys.h"
#include "contract/FileStore.h"
#include "events/EventUpload.h"
#include "events/UploadBacklog.h"
#include "host/container/LumContainer.h"
#include "host/core/FileStoreAction.h"
#include "host/core/LumStartup.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "model/ModuleLog.h"

namespace {

constexpr LumRoutine kRoutine(ModuleDebug, "HandOverLeftOvers");
constexpr std::time_t kYoungSeconds = 60;
/// A container file that is larger cannot be read.
constexpr std::size_t kMaxFileBytes = std::size_t{64} << 20U;

/// A file that is nobody's any more: nobody has touched it for a while. The clock may have been set since.
bool IsLeftOver(const LumString& path) {
    struct stat status {};
    return lstat(path.GetString(), &status) == 0 && S_ISREG(status.st_mode) &&
           std::abs(std::time(nullptr) - status.st_mtime) > kYoungSeconds;
}

std::vector<LumString> LeftOverNames(const LumString& directory) {
    std::vector<LumString> names;
    const std::unique_ptr<LumDirectory, decltype(&CloseDirectory)> listing(OpenDirectory(directory),
                                                                           CloseDirectory);
    for (LumString name; ReadDirectory(listing.get(), name);) {
        if (name.View().starts_with(kTempFilePrefix) && IsLeftOver(directory + "/" + name)) {
            names.push_back(name);
        }
    }
    return names;
}

/// What a container file is handed over as; null where it does not come from the module.
const char* KindOf(const LumContainer& content) {
    if (!content.Contains(keys::kEventDate) || !content.Contains(keys::kEventGmtOffset)) {
        return nullptr;
    }
    return content.Contains(keys::kModelDef) ? kFileTypeEvents : kFileTypeAlert;
}

bool IsMadeAgain(const LumContainer& content) {
    LumContainer description;
    LumString model;
    return content.GetContainer(keys::kModelDef, description) &&
           description.GetString(keys::kModelName, model) && UploadBacklog.IsOpen(model);
}

/// False where the store takes no more.
bool HandOver(const LumString& directory, const LumString& name) {
    const LumString path = directory + "/" + name;
    std::string bytes;
    LumContainer content;
    LumString error;
    if (!FileRead(path, kMaxFileBytes, bytes, error)) {
        return true;  // perhaps it can be read later
    }
    if (!content.FromCbor(bytes, error)) {
        kRoutine.Warning("%S is not whole and is deleted: %S", path, error);
        FileDelete(path, true);
        return true;
    }
    const char* const kind = KindOf(content);
    if (kind == nullptr) {
        return true;
    }
    if (IsMadeAgain(content)) {
        FileDelete(path, true);
        return true;
    }
    const std::optional<int32_t> priority =
        kind == kFileTypeEvents ? std::optional(kUploadFilePriority) : std::nullopt;
    return FileStoreHandOverFile(path, kind, priority) == FileStoreOutcome::kDone;
}

}  // namespace

void HandOverLeftOvers() {
    if (!FileStoreIsThere()) {
        return;
    }
    const LumString directory = GetTempDirectory();
    const std::vector<LumString> names = LeftOverNames(directory);
    uint32_t count = 0;
    for (const LumString& name : names) {
        if (LumStopRequested() || !HandOver(directory, name)) {
            break;
        }
        ++count;
    }
    if (count > 0) {
        kRoutine.Print("Files that waited in %S were looked after: %u of %u", directory, count,
                       static_cast<uint32_t>(names.size()));
    }
}
