#include "host/text/LumUtf8.h"

#include <cstdint>
#include <cstring>

namespace {

struct Decoded {
    char32_t character;
    std::size_t length;  // 0: no well-formed sequence starts here
};

bool IsContinuation(unsigned char byte) {
    return (byte & 0xC0U) == 0x80U;
}

bool IsCharacter(char32_t c) {
    return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
}

Decoded Decode(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
    const unsigned char first = byte(0);
    if (first < 0x80U) {
        return {first, 1};
    }
    const std::size_t length = first >= 0xF0U ? 4 : first >= 0xE0U ? 3 : 2;
    if (first < 0xC2U || first > 0xF4U || text.size() - at < length) {
        return {kLumReplacementCharacter, 0};
    }
    char32_t character = first & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if (!IsContinuation(byte(i))) {
            return {kLumReplacementCharacter, 0};
        }
        character = (character << 6U) | (byte(i) & 0x3FU);
    }
    constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (character < kSmallest[length] || !IsCharacter(character)) {
        return {kLumReplacementCharacter, 0};
    }
    return {character, length};
}

template <class Word>
Word Load(const char* from) {
    Word word = 0;
    std::memcpy(&word, from, sizeof(word));
    return word;
}

/// Says whether the text has no byte of 0x80 or above; looks at whole words, of which the last two may
/// overlap.
bool IsAscii(std::string_view text) {
    constexpr uint64_t kHighBits = 0x8080808080808080U;
    const char* const end = text.data() + text.size();
    uint64_t bits = 0;
    if (text.size() >= sizeof(uint64_t)) {
        for (const char* at = text.data(); end - at > static_cast<std::ptrdiff_t>(sizeof(uint64_t));
             at += sizeof(uint64_t)) {
            bits |= Load<uint64_t>(at);
        }
        bits |= Load<uint64_t>(end - sizeof(uint64_t));
    } else if (text.size() >= sizeof(uint32_t)) {
        bits = Load<uint32_t>(text.data()) | Load<uint32_t>(end - sizeof(uint32_t));
    } else {
        for (const char byte : text) {
            bits |= static_cast<unsigned char>(byte);
        }
    }
    return (bits & kHighBits) == 0;
}

}  // namespace

char32_t LumNextUtf8(std::string_view text, std::size_t& position) {
    const Decoded decoded = Decode(text, position);
    position += decoded.length == 0 ? 1 : decoded.length;
    return decoded.character;
}

void LumAppendUtf8(std::string& out, char32_t character) {
    const char32_t c = IsCharacter(character) ? character : kLumReplacementCharacter;
    const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
    if (c < 0x80) {
        put(c);
    } else if (c < 0x800) {
        put(0xC0U | (c >> 6U));
        put(0x80U | (c & 0x3FU));
    } else if (c < 0x10000) {
        put(0xE0U | (c >> 12U));
        put(0x80U | ((c >> 6U) & 0x3FU));
        put(0x80U | (c & 0x3FU));
    } else {
        put(0xF0U | (c >> 18U));
        put(0x80U | ((c >> 12U) & 0x3FU));
        put(0x80U | ((c >> 6U) & 0x3FU));
        put(0x80U | (c & 0x3FU));
    }
}

bool LumIsUtf8(std::string_view text) {
    // Most texts are ASCII, which is seen much faster than character by character.
    if (IsAscii(text)) {
        return true;
    }
    for (std::size_t i = 0; i < text.size();) {
        const Decoded decoded = Decode(text, i);
        if (decoded.length == 0) {
            return false;
        }
        i += decoded.length;
    }
    return true;
}
