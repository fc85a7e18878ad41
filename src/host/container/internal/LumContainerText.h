#pragma once

#include <string>
#include <string_view>

#include "host/text/LumUtf8.h"

/// The text with U+FFFD in place of each byte that is not UTF-8.
[[nodiscard]] inline std::string LumCleanUtf8(std::string_view text) {
    std::string clean;
    for (std::size_t i = 0; i < text.size();) {
        LumAppendUtf8(clean, LumNextUtf8(text, i));
    }
    return clean;
}
