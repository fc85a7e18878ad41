#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "host/container/LumContainer.h"
#include "host/core/ActionDb.h"

/// Takes the file store's place while it lives: reads each file that it is handed, deletes it and keeps its
/// content. One at a time. May be called from any thread.
class FileStoreStandIn {
public:
    /// What to do with a request and the content of its file, which is empty where none could be read; what
    /// it answers is the action's status; with 0 the file is deleted. Called on the thread of whoever hands a
    /// file over.
    using Receive = std::function<uint32_t(const LumContainer& request, const LumContainer& content)>;

    /// Keeps requests and files and answers 0.
    FileStoreStandIn();
    /// Leaves everything to `receive` and keeps nothing.
    explicit FileStoreStandIn(Receive receive);
    FileStoreStandIn(const FileStoreStandIn&) = delete;
    FileStoreStandIn& operator=(const FileStoreStandIn&) = delete;
    ~FileStoreStandIn();

    /// What the action was called with so far.
    [[nodiscard]] std::vector<LumContainer> Requests() const;
    /// The contents of the files that could be read so far.
    [[nodiscard]] std::vector<LumContainer> Files() const;
    /// The same, and forgets them.
    [[nodiscard]] std::vector<LumContainer> TakeFiles();

private:
    static uint32_t Handle(LumContainer* request);

    const Receive receive_;
    LumAgentHandle handle_{"FileStoreStandIn"};
    mutable std::mutex mutex_;
    std::vector<LumContainer> requests_;
    std::vector<LumContainer> files_;
};
