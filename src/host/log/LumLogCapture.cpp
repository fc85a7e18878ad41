#include "host/log/LumLogCapture.h"

namespace {

thread_local LumLogCapture* innermostCapture = nullptr;

}  // namespace

LumLogCapture::LumLogCapture() : outer_(innermostCapture) {
    innermostCapture = this;
}

LumLogCapture::~LumLogCapture() {
    innermostCapture = outer_;
}

void LumLogCapture::Note(LumLogLevel level, std::string_view line) {
    LumLogCapture* const capture = innermostCapture;
    if (capture != nullptr && level >= LumLogLevel::kWarning && capture->lines_.size() < kMaxLines) {
        capture->lines_.emplace_back(line);
    }
}
