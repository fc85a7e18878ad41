#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "host/log/LumDebug.h"
#include "support/TempDirectory.h"

/// How often `part` stands in `text`.
inline std::size_t CountIn(std::string_view text, std::string_view part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

/// A logging context whose lines a test can read back.
class LogLines {
public:
    LogLines() {
        constexpr std::size_t kMaxBytes = std::size_t{64} << 20U;
        LumString error;
        context_.SetLevel(LumLogLevel::kTrace);
        if (!context_.OpenFile(directory_.At("log"), kMaxBytes, 1, error)) {
            throw std::runtime_error(error.GetString());
        }
    }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;
    ~LogLines() = default;

    [[nodiscard]] LumDebugContext& Context() { return context_; }

    [[nodiscard]] std::string Text() const { return directory_.Read("log"); }
    /// How often `part` has been written so far.
    [[nodiscard]] std::size_t Count(std::string_view part) const { return CountIn(Text(), part); }

    /// Every line so far without its time: "warning Host some text".
    [[nodiscard]] std::vector<std::string> All() const {
        std::vector<std::string> lines;
        const std::string content = directory_.Read("log");
        for (std::size_t from = 0; from < content.size();) {
            const std::size_t end = content.find('\n', from);
            const std::string line = content.substr(from, end - from);
            lines.push_back(line.substr(line.find(' ') + 1));
            from = end == std::string::npos ? content.size() : end + 1;
        }
        return lines;
    }

private:
    TempDirectory directory_;
    LumDebugContext context_;
};

/// The lines of the host libraries' own logger while it lives.
class HostLogLines : public LogLines {
public:
    HostLogLines() { LumHostDebug().SetContext(&Context()); }
    HostLogLines(const HostLogLines&) = delete;
    HostLogLines& operator=(const HostLogLines&) = delete;
    ~HostLogLines() { LumHostDebug().SetContext(nullptr); }
};
