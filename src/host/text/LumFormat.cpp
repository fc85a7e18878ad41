#include "host/text/LumFormat.h"

#include <charconv>

#include "host/text/LumString.h"

void LumAppendNumber(std::string& out, int64_t value) {
    char digits[24];
    auto* const end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    out.append(digits, end);
}

void LumAppendDouble(std::string& out, double value) {
    // The longest double has 309 digits before the point. printf would write the point of the process's
    // locale.
    char text[352];
    auto* const end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 6).ptr;
    out.append(text, end);
}

void LumAppendFormatted(std::string& out, std::string_view format, const LumFormatArg* args) {
    std::size_t from = 0;
    for (;;) {
        const std::size_t percent = format.find('%', from);
        out.append(format.substr(from, percent - from));
        if (percent == std::string_view::npos) {
            return;
        }
        from = percent + 2;
        switch (format[percent + 1]) {
            case 'S':
                out.append((args++)->string);
                break;
            case 's':
                if (const char* text = (args++)->text) {
                    out.append(text);
                }
                break;
            case 'd':
                LumAppendNumber(out, static_cast<int32_t>((args++)->number));
                break;
            case 'u':
                LumAppendNumber(out, static_cast<uint32_t>((args++)->number));
                break;
            case 'l':
                LumAppendNumber(out, (args++)->number);
                ++from;
                break;
            case 'f':
                LumAppendDouble(out, (args++)->real);
                break;
            default:
                out.push_back('%');
                break;
        }
    }
}
