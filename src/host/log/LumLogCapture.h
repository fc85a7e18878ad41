#pragma once

#include <cstddef>
#include <vector>

#include "host/log/LumDebug.h"
#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// While it lives, keeps the warnings and errors that are logged on its thread, whichever logger they go
/// through. Captures nest: a line goes to the innermost. Belongs to its thread.
class LUM_API LumLogCapture {
public:
    /// Further lines of one capture are dropped.
    static constexpr std::size_t kMaxLines = 100;

    LumLogCapture();
    LumLogCapture(const LumLogCapture&) = delete;
    LumLogCapture& operator=(const LumLogCapture&) = delete;
    ~LumLogCapture();

    /// The lines so far, without their time: "error EventLogManager Failed to ...".
    [[nodiscard]] const std::vector<LumString>& GetLines() const { return lines_; }

    /// Called by LumDebugContext for each line that it writes.
    static void Note(LumLogLevel level, std::string_view line);

private:
    LumLogCapture* const outer_;
    std::vector<LumString> lines_;
};
