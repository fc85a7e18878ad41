#include "client/text/LineReader.h"

LineReader::Line LineReader::Next(std::string& text) {
    using Traits = std::istream::traits_type;
    text.clear();
    std::streambuf& source = *in_.rdbuf();
    Traits::int_type next = source.sbumpc();
    if (Traits::eq_int_type(next, Traits::eof())) {
        return Line::kEnd;
    }
    bool fits = true;
    for (; !Traits::eq_int_type(next, Traits::eof()); next = source.sbumpc()) {
        ++bytes_;
        const char letter = Traits::to_char_type(next);
        if (letter == '\n') {
            break;
        }
        fits = fits && text.size() < maxLineBytes_;
        if (fits) {
            text += letter;
        }
    }
    ++number_;
    return fits ? Line::kText : Line::kTooLong;
}
