#include "machine/source/FieldText.h"

#include <limits>
#include <string>
#include <utility>

#include "host/text/LumUtf8.h"

namespace {

constexpr char32_t kCutMark = 0x2026;
constexpr std::time_t kDay = 86400;

/// Control characters (C0, DEL, C1), and the marks that make a text read in another order than it stands.
bool IsHidden(char32_t character) {
    return character < 0x20 || (character >= 0x7F && character < 0xA0) ||
           (character >= 0x200E && character <= 0x200F) || (character >= 0x2028 && character <= 0x202E) ||
           (character >= 0x2066 && character <= 0x2069);
}

}  // namespace

LumString FieldText(std::string_view raw) {
    std::string text;
    std::size_t count = 0;
    for (std::size_t position = 0; position < raw.size(); ++count) {
        if (count == kMaxFieldCharacters) {
            LumAppendUtf8(text, kCutMark);
            break;
        }
        const char32_t character = LumNextUtf8(raw, position);
        LumAppendUtf8(text, IsHidden(character) ? kLumReplacementCharacter : character);
    }
    return LumString(std::move(text));
}

int32_t FieldTime(std::time_t seconds, std::time_t now) {
    const bool isPlausible =
        seconds >= 0 && seconds <= now + kDay && seconds <= std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(isPlausible ? seconds : now);
}
