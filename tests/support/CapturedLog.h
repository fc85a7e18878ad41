#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "host/lum/LumDebug.h"
#include "support/ScratchDirectory.h"

/// A logging context whose lines a test can read back. While it lives, the host's own logger writes to it.
class CapturedLog {
public:
    CapturedLog() {
        LumString error;
        if (!context_.OpenFile(LumString(std::string_view(path_)), std::size_t{1} << 30U, 1, error)) {
            throw std::runtime_error(error.GetString());
        }
        context_.SetLevel(LumLogLevel::kTrace);
        LumHostDebug().SetContext(&context_);
    }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;
    ~CapturedLog() { LumHostDebug().SetContext(nullptr); }

    [[nodiscard]] LumDebugContext& GetContext() { return context_; }
    [[nodiscard]] std::string GetText() const { return ReadWholeFile(path_); }
    [[nodiscard]] std::size_t Count(std::string_view part) const { return CountIn(GetText(), part); }

    /// How often `part` stands in `text`.
    [[nodiscard]] static std::size_t CountIn(const std::string& text, std::string_view part) {
        std::size_t count = 0;
        for (std::size_t at = text.find(part); at != std::string::npos;
             at = text.find(part, at + part.size())) {
            ++count;
        }
        return count;
    }

private:
    ScratchDirectory directory_;
    const std::string path_ = directory_ / "log";
    LumDebugContext context_;
};
