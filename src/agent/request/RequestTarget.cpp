#include "agent/request/RequestTarget.h"

#include <cstddef>

namespace {

int HexDigit(char character) {
    if (character >= '0' && character <= '9') {
        return character - '0';
    }
    const char lower = static_cast<char>(character | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// Takes percent-encoding (RFC 3986, section 2.1) off; nothing where it is broken.
std::optional<std::string> PercentDecode(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        const int high = i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return decoded;
}

}  // namespace

std::optional<std::string> PathOfTarget(std::string_view target) {
    constexpr std::string_view scheme = "http://";
    if (target.starts_with(scheme)) {
        target.remove_prefix(scheme.size());
        const std::size_t slash = target.find('/');
        target = slash == std::string_view::npos ? "/" : target.substr(slash);
    }
    return PercentDecode(target.substr(0, target.find('?')));
}

bool IsAskedFor(std::string_view target, std::string_view name) {
    std::size_t at = target.find('?');
    while (at != std::string_view::npos) {
        target.remove_prefix(at + 1);
        at = target.find('&');
        const std::string_view entry = target.substr(0, at);
        const std::size_t equals = entry.find('=');
        if (equals != std::string_view::npos && entry.substr(0, equals) == name) {
            const std::string_view value = entry.substr(equals + 1);
            return !value.empty() && value != "0" && value != "false";
        }
    }
    return false;
}
