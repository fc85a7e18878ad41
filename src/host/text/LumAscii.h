#pragma once

/// Whatever the locale: '0' to '9'.
[[nodiscard]] constexpr bool IsAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}
