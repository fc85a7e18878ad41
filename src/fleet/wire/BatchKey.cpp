#include "fleet/wire/BatchKey.h"

#include <algorithm>

#include "host/text/LumAscii.h"

namespace {

bool IsNameLetter(char letter) {
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') || IsAsciiDigit(letter) ||
           letter == '_' || letter == '-';
}

}  // namespace

bool IsDeviceName(std::string_view text) {
    return !text.empty() && text.size() <= kMaxDeviceNameLength &&
           std::all_of(text.begin(), text.end(), IsNameLetter);
}

bool IsDigest(std::string_view text) {
    return text.size() == kDigestLength && std::all_of(text.begin(), text.end(), [](char letter) {
               return IsAsciiDigit(letter) || (letter >= 'a' && letter <= 'f');
           });
}

std::string KeyText(const BatchKey& key) {
    return key.device + ":" + key.digest;
}

bool ParseKey(std::string_view text, BatchKey& key) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || !IsDeviceName(text.substr(0, colon)) ||
        !IsDigest(text.substr(colon + 1))) {
        return false;
    }
    key.device = text.substr(0, colon);
    key.digest = text.substr(colon + 1);
    return true;
}
