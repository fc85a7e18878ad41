#pragma once

#include <string>
#include <string_view>

#include "host/text/LumString.h"

/// What the name of a file that is not whole yet begins with. It lies beside the file that it is to become.
constexpr std::string_view kUnfinishedPrefix = ".lum-";

/// False, with `reason` as errno.
bool Fail(int reason);

/// False, with errno, for a text that the system would not read whole.
[[nodiscard]] bool IsPath(const LumString& path);

/// The directory in which the last component of `path` lies.
[[nodiscard]] std::string ParentOf(std::string_view path);

/// Makes the entries of a directory durable; false with errno.
[[nodiscard]] bool SyncDirectory(const std::string& path);
