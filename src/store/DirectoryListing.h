#pragma once

#include <vector>

#include "host/text/LumString.h"

/// Adds the names in a directory but "." and ".." to `entries`, in the directory's own order; false where it
/// cannot be opened.
[[nodiscard]] bool ListDirectory(const LumString& path, std::vector<LumString>& entries);

/// True where a file of that name is taken for a definition.
[[nodiscard]] bool IsDefinitionName(const LumString& fileName);
