#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/log/LumDebug.h"
#include "support/TempDirectory.h"

/// How often `part` stands in `text`.
[[nodiscard]] std::size_t CountIn(std::string_view text, std::string_view part);

/// Reads a log file back. A line is told without its time, "level Logger text", and where only the lines of
/// one logger are asked for, without that: "level text".
class LogReader {
public:
    /// Of the lines in the file at `path`, those of `logger`; of all loggers where it is empty.
    explicit LogReader(std::string path, std::string logger = {});

    /// The lines of that level and above.
    [[nodiscard]] std::vector<std::string> Said(LumLogLevel least = LumLogLevel::kPrint) const;
    /// How often `part` stands in the lines of all levels, each with a line end.
    [[nodiscard]] std::size_t Count(std::string_view part) const;
    /// What has been written until now is not told again.
    void Forget();

private:
    std::string path_;
    std::string logger_;
    std::size_t begin_ = 0;
};

struct LogDirectory {
    TempDirectory directory;
};

/// A logging context of the test's own, down to the trace level, and what is written to it.
class LogLines : private LogDirectory, public LogReader {
public:
    LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;
    ~LogLines() = default;

    [[nodiscard]] LumDebugContext& Context() { return context_; }

private:
    LumDebugContext context_;
};

/// The same for the host libraries' own logger while it lives.
class HostLogLines : public LogLines {
public:
    HostLogLines() { LumHostDebug().SetContext(&Context()); }
    HostLogLines(const HostLogLines&) = delete;
    HostLogLines& operator=(const HostLogLines&) = delete;
    ~HostLogLines() { LumHostDebug().SetContext(nullptr); }
};
