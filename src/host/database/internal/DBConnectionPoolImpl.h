#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "host/database/Database.h"
#include "host/database/internal/DBHandle.h"
#include "host/database/internal/Durability.h"
#include "host/log/LumDebug.h"
#include "host/thread/LumMutex.h"

/// What a pool knows, and the handles that its connections come to use.
class DBConnectionPool::Impl final : public FailedSyncListener {
public:
    void SetDebug(LumDebug& debug) { debug_.store(&debug, std::memory_order_release); }
    [[nodiscard]] LumDebug& Debug() const;

    void SetChangeAction(ChangeAction action) { changeAction_.store(action); }
    /// Tells the action of a change that the machine has failed, and of the first that succeeds after that.
    void NoteChange(const DBOutcome& outcome, bool done);

    /// The same for changes that could not be made durable, which is an error line too.
    void NoteFailedSync(const std::string& reason) override;

    [[nodiscard]] uint32_t GetOpenCount() const { return shared_->GetOpenCount(); }

    void SetPath(const LumString& path);
    void SetSerial(bool serial) { serial_.store(serial, std::memory_order_relaxed); }

    /// The handle of a new connection: the shared one, or one that nobody else uses.
    [[nodiscard]] std::shared_ptr<DBHandle> Take();
    /// Keeps the handle of a connection that ends for the next one.
    void GiveBack(std::shared_ptr<DBHandle> handle);

private:
    std::atomic<LumDebug*> debug_{nullptr};
    std::atomic<bool> serial_{false};
    std::atomic<ChangeAction> changeAction_{nullptr};
    std::atomic<bool> changesFail_{false};

    // Set before there are connections.
    LumString path_;
    std::shared_ptr<DBHandle> shared_ = std::make_shared<DBHandle>(LumString());

    LumMutex mutex_;
    std::vector<std::shared_ptr<DBHandle>> idle_ LUM_GUARDED_BY(mutex_);
};
