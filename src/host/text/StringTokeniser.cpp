#include "host/text/StringTokeniser.h"

#include <algorithm>

StringTokeniser::StringTokeniser(const LumString& text, const LumString& delimiters, uint32_t flags)
    : text_(text), delimiters_(delimiters), keepEmpty_((flags & kKeepEmptyTokens) != 0) {}

uint32_t StringTokeniser::GetNextToken(LumString& token) {
    const std::string_view text = text_.View();
    if (!keepEmpty_) {
        next_ = std::min(text.find_first_not_of(delimiters_.View(), next_), text.size() + 1);
    }
    // The end of the text closes its last token, which may be empty, so one step past it is the end of all.
    if (next_ > text.size() || (!keepEmpty_ && next_ == text.size())) {
        return 0;
    }
    const std::size_t end = std::min(text.find_first_of(delimiters_.View(), next_), text.size());
    token = LumString(text.substr(next_, end - next_));
    next_ = end + 1;
    return 1;
}
