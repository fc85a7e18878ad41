#pragma once

#include <cstdint>
#include <mutex>

#include "filestore/Outbox.h"
#include "host/text/LumString.h"

/// Whether the outbox does its work. A failure stands until a file was taken, or would be taken: that is
/// tried each time that somebody asks, as it may be long before the next file comes. From any thread.
class OutboxHealth {
public:
    explicit OutboxHealth(Outbox& outbox) : outbox_(outbox) {}

    void NoteTaken();
    /// The outbox could not take `file`.
    void NoteFailure(const ReceivedFile& file);

    /// One sentence for people; empty where all is well.
    [[nodiscard]] LumString Check();

private:
    Outbox& outbox_;

    std::mutex mutex_;
    // Guarded by mutex_: a file of this kind and size could not be taken, the last time.
    bool hasFailed_ = false;
    LumString fileType_;
    uint64_t bytes_ = 0;
};
