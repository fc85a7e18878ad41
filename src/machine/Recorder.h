#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "host/file/FileDescriptor.h"
#include "host/thread/LumThread.h"
#include "machine/Feed.h"

/// The module's one thread. It waits for all sources at once, and gives each that has something to say a
/// short turn. The operations belong to the host's thread; the feeds belong to this one while it runs.
class Recorder : public LumThread {
public:
    Recorder() = default;
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
    ~Recorder() override;

    /// Not to be called while the thread runs.
    void SetFeeds(std::vector<std::unique_ptr<Feed>> feeds) { feeds_ = std::move(feeds); }
    /// False where the thread cannot be started.
    [[nodiscard]] bool Begin();
    /// Ends the thread at the next event; waits for it up to `milliseconds`, and true says that it has ended.
    bool End(uint32_t milliseconds);

protected:
    void ThreadMain() override;

private:
    [[nodiscard]] bool IsStopping() const { return isStopping_.load(std::memory_order_relaxed); }
    /// Gives each feed whose moment has come a turn; true where one of them has more to do.
    bool TakeTurns();
    void WaitForNews();

    std::vector<std::unique_ptr<Feed>> feeds_;
    std::vector<bool> hasNews_;
    std::atomic<bool> isStopping_{false};
    FileDescriptor wake_;
};
