#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "host/text/LumApi.h"

/// What stands for bytes that are not UTF-8 and for numbers that are not Unicode characters.
inline constexpr char32_t kLumReplacementCharacter = 0xFFFD;

/// Reads the character at `position` of `text` and moves `position` past it. A byte that starts no
/// well-formed UTF-8 sequence (RFC 3629: no overlong forms, no surrogates, nothing above U+10FFFF) gives
/// U+FFFD and is skipped alone. `position` must be below the length.
LUM_API char32_t LumNextUtf8(std::string_view text, std::size_t& position);

/// Appends `character` to `out` as UTF-8; what is not a Unicode character becomes U+FFFD.
LUM_API void LumAppendUtf8(std::string& out, char32_t character);

/// Says whether all of `text` is well-formed UTF-8.
[[nodiscard]] LUM_API bool LumIsUtf8(std::string_view text);
