#pragma once

#include <string>

#include "host/database/internal/DBHandle.h"

/// Who is told that changes could not be made durable: a pool.
class FailedSyncListener {
public:
    virtual ~FailedSyncListener() = default;

    /// Called without a lock, on the first thread that learns of it.
    virtual void NoteFailedSync(const std::string& reason) = 0;
};

/// Adds a commit of this thread to those that DBAwaitDurable waits for. Nothing where `unsynced` is empty.
/// `listener` lives for as long as the handle that the commit was made with.
void RememberUnsynced(DBUnsynced unsynced, FailedSyncListener& listener);
