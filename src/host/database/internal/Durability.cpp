#include "host/database/internal/Durability.h"

#include <cstdint>
#include <new>
#include <string>
#include <utility>

#include "host/database/Database.h"

namespace {

/// What a thread has committed and not yet waited for. Later tickets of one log include the earlier ones.
struct Pending {
    DBUnsynced last;
    FailedSyncListener* listener = nullptr;
    uint32_t delays = 0;
    bool failed = false;
};

thread_local Pending pending;

}  // namespace

void RememberUnsynced(DBUnsynced unsynced, FailedSyncListener& listener) {
    if (unsynced.log == nullptr) {
        return;
    }
    if (pending.last.log != nullptr && pending.last.log != unsynced.log) {
        DBAwaitDurable();
    }
    pending.last = std::move(unsynced);
    pending.listener = &listener;
}

bool DBAwaitDurable() {
    const DBUnsynced last = std::exchange(pending.last, {});
    if (last.log == nullptr) {
        return true;
    }
    try {
        std::string error;
        if (last.log->Await(last.ticket, error)) {
            return true;
        }
        pending.failed = true;
        if (!error.empty()) {
            pending.listener->NoteFailedSync(error);
        }
    } catch (const std::bad_alloc&) {
        pending.failed = true;  // there is no memory to say it, and scopes wait here as they end
    }
    return false;
}

bool DBTakeDurable() {
    return !std::exchange(pending.failed, false);
}

DBDurabilityDelay::DBDurabilityDelay() {
    ++pending.delays;
}

DBDurabilityDelay::~DBDurabilityDelay() {
    --pending.delays;
}

bool DBDurabilityDelay::IsActive() {
    return pending.delays > 0;
}
