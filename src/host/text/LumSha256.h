#pragma once

#include <string>
#include <string_view>

#include "host/text/LumApi.h"

/// The SHA-256 digest (FIPS 180-4) of the whole file that is open as `fd`, as 64 hexadecimal digits in lower
/// case. The descriptor's position stays where it is. False, with errno, where the file cannot be read.
[[nodiscard]] LUM_API bool Sha256OfFile(int fd, std::string& digest);

/// The same digest of `bytes`.
[[nodiscard]] LUM_API std::string Sha256Hex(std::string_view bytes);
