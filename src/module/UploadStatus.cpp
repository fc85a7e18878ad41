#include "module/UploadStatus.h"

#include <optional>

#include "events/UploadBacklog.h"
#include "host/container/LumContainer.h"
#include "host/core/LumMetrics.h"

namespace {

std::optional<LumStatusProvider> provider;

void Fill(LumContainer& status) {
    uint32_t position = 0;
    for (const OutstandingUpload& upload : UploadBacklog.GetOutstanding()) {
        status.SetString("Model", upload.model, position);
        status.SetInt32("Start", upload.start, position);
        status.SetInt32("End", upload.end, position);
        status.SetInt32("HandedOver", upload.handedOver, position);
        if (upload.left.has_value()) {
            status.SetInt32("Left", *upload.left, position);
        }
        status.SetString("Reason", upload.reason, position);
        ++position;
    }
}

}  // namespace

void BeginUploadStatus() {
    provider.emplace("uploads", Fill);
}

void EndUploadStatus() {
    provider.reset();
}
