#include "filestore/OutboxHealth.h"

#include <sys/stat.h>

#include "filestore/OutboxFigures.h"

void OutboxHealth::NoteTaken() {
    const std::lock_guard<std::mutex> guard(mutex_);
    hasFailed_ = false;
}

void OutboxHealth::NoteFailure(const ReceivedFile& file) {
    struct stat status {};
    const bool isThere = lstat(file.movePath.GetString(), &status) == 0;
    const std::lock_guard<std::mutex> guard(mutex_);
    hasFailed_ = true;
    fileType_ = file.fileType;
    bytes_ = isThere ? static_cast<uint64_t>(status.st_size) : 0;
}

LumString OutboxHealth::Check() {
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        LumString reason;
        if (hasFailed_ && !outbox_.WouldTake(fileType_, bytes_, reason)) {
            return LumString("The outbox cannot take files: ") + reason + ".";
        }
        hasFailed_ = false;
    }
    return CheckOutbox(outbox_.GetDirectory());
}
