#pragma once

#include <string>

#include "client/CommandContext.h"
#include "client/ExitStatus.h"

/// Creates one event of `model` for each line of the file `path` ("-" is the console's input), a JSON object
/// each; blank lines are passed over. A line that cannot be taken is reported with its number and the others
/// go on; an agent that no longer answers ends the import. The last line of the output counts both. kFailed
/// where any line failed.
[[nodiscard]] ExitStatus ImportEvents(CommandContext& context, const std::string& model,
                                      const std::string& path);
