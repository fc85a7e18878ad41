#include "host/core/FileStoreAction.h"

#include "contract/FileStore.h"
#include "contract/Statuses.h"
#include "host/core/ActionDb.h"

FileStoreOutcome FileStoreHandOver(const LumContainer& content, const char* kind,
                                   std::optional<int32_t> priority, LumString& path) {
    path = content.SaveToTempFile();
    return path.IsEmpty() ? FileStoreOutcome::kNotMade : FileStoreHandOverFile(path, kind, priority);
}

FileStoreOutcome FileStoreHandOverFile(const LumString& path, const char* kind,
                                       std::optional<int32_t> priority) {
    LumContainer arguments;
    arguments.SetString(kFileStoreFileType, kind);
    arguments.SetString(kFileStoreFileLabel, kind);
    arguments.SetString(kFileStoreFileName, "");
    arguments.SetString(kFileStoreFileChecksum, "");
    arguments.SetBool(kFileStoreUpstream, true);
    if (priority.has_value()) {
        arguments.SetInt32(kFileStorePriority, *priority);
    }
    arguments.SetString(kFileStoreMovePath, path);
    uint32_t status = kActionFailed;
    const bool taken = ActionDbDeliver(kFileStoreAction, arguments, status) && status == kActionDone;
    return taken ? FileStoreOutcome::kDone : FileStoreOutcome::kNotTaken;
}

bool FileStoreIsThere() {
    return ActionDbIsActionRegistered(kFileStoreAction);
}
