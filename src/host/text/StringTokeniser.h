#pragma once

#include <cstddef>
#include <cstdint>

#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// Splits a text at any of a set of delimiter characters. An object belongs to one thread at a time.
class LUM_API StringTokeniser {
public:
    /// With this flag two delimiters in a row, and one at either end, enclose an empty token; without it they
    /// count as one and no token is ever empty.
    static constexpr uint32_t kKeepEmptyTokens = 1;

    /// Copies both texts. `flags` is 0 or kKeepEmptyTokens.
    StringTokeniser(const LumString& text, const LumString& delimiters, uint32_t flags);

    /// Puts the next token into `token` and answers 1; answers 0, and leaves `token` untouched, after the
    /// last.
    [[nodiscard]] uint32_t GetNextToken(LumString& token);

private:
    const LumString text_;
    const LumString delimiters_;
    const bool keepEmpty_;
    std::size_t next_ = 0;
};
