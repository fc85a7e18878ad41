#include "host/core/FileStoreAction.h"

#include "contract/FileStore.h"
#include "host/core/ActionDb.h"

void FileStoreHandOver(const LumContainer& content, const char* kind, std::optional<int32_t> priority) {
    LumContainer arguments;
    arguments.SetString(kFileStoreFileType, kind);
    arguments.SetString(kFileStoreFileLabel, kind);
    arguments.SetString(kFileStoreFileName, "");
    arguments.SetString(kFileStoreFileChecksum, "");
    arguments.SetBool(kFileStoreUpstream, true);
    if (priority.has_value()) {
        arguments.SetInt32(kFileStorePriority, *priority);
    }
    arguments.SetString(kFileStoreMovePath, content.SaveToTempFile());
    ActionDbInvokeContainer(nullptr, LumString(), kFileStoreAction, arguments, nullptr, 0xFFFFFFFF,
                            0xFFFFFFFF, false);
}
