#pragma once

#include <cstdint>

#include "host/database/Database.h"
#include "host/text/LumString.h"

/// How large the database would be without its free pages, in bytes; 0 where that cannot be asked.
[[nodiscard]] int64_t LiveBytes(DBConnection& connection);

/// The free bytes of the file system of a directory; -1 where that cannot be asked.
[[nodiscard]] int64_t FreeBytes(const LumString& directory);
