#pragma once

#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// The letters A to Z as a to z; every other byte as it is.
[[nodiscard]] constexpr char LumFoldCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// True where all of `text` fits `pattern`, in which * stands for any run of bytes and ? for any one.
/// `ignoreCase` folds the letters A to Z.
[[nodiscard]] LUM_API bool MatchPattern(const LumString& text, const LumString& pattern, bool ignoreCase);
