#pragma once

#include <cstdint>
#include <string>

#include "client/ExitStatus.h"
#include "client/commands/CommandContext.h"

struct ImportOptions {
    std::string model;
    std::string file;       ///< "-" is the console's input
    uint64_t fromLine = 1;  ///< lines before it are passed over
};

/// Creates one event for each line of a file, a JSON object each, such as ExportEvents writes; blank lines
/// are passed over. A line that cannot be taken is reported with its number and the others go on; an agent
/// that no longer answers ends the import, and so does Ctrl-C, each with a word on where to go on. The last
/// line of the output counts both. kFailed where any line failed, kInterrupted after Ctrl-C.
[[nodiscard]] ExitStatus ImportEvents(CommandContext& context, const ImportOptions& options);
