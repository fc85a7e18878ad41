#include "support/FileStoreStandIn.h"

#include <atomic>
#include <stdexcept>
#include <utility>

#include "contract/FileStore.h"
#include "host/file/LumFile.h"

namespace {

std::atomic<FileStoreStandIn*> standIn{nullptr};

}  // namespace

FileStoreStandIn::FileStoreStandIn() : FileStoreStandIn(nullptr) {}

FileStoreStandIn::FileStoreStandIn(Receive receive) : receive_(std::move(receive)) {
    standIn = this;
    if (!ActionDbRegisterAction(kFileStoreSignature, Handle, &handle_)) {
        throw std::runtime_error("there is a file store already");
    }
}

FileStoreStandIn::~FileStoreStandIn() {
    ActionDbUnregisterModule(&handle_);
}

uint32_t FileStoreStandIn::Handle(LumContainer* request) {
    FileStoreStandIn& self = *standIn;
    LumString path;
    LumString error;
    LumContainer content;
    const bool isRead = request->GetString(kFileStoreMovePath, path) && content.LoadFromFile(path, error);
    if (self.receive_ != nullptr) {
        const uint32_t status = self.receive_(*request, content);
        if (status == 0) {
            FileDelete(path, true);
        }
        return status;
    }
    if (isRead) {
        FileDelete(path, true);
    }
    const std::lock_guard<std::mutex> guard(self.mutex_);
    self.requests_.push_back(*request);
    if (isRead) {
        self.files_.push_back(std::move(content));
    }
    return 0;
}

std::vector<LumContainer> FileStoreStandIn::Requests() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return requests_;
}

std::vector<LumContainer> FileStoreStandIn::Files() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return files_;
}

std::vector<LumContainer> FileStoreStandIn::TakeFiles() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return std::exchange(files_, {});
}
