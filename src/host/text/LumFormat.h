#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "host/text/LumApi.h"

class LumString;

/// The kinds of argument that a format text can ask for.
enum class LumFormatKind : uint8_t {
    kLumString,  ///< %S, a LumString or a view of constant text
    kText,       ///< %s, a null-terminated text
    kInt32,      ///< %d, a signed number of at most 32 bits
    kUint32,     ///< %u, an unsigned number of at most 32 bits
    kInt64,      ///< %ld, a signed 64-bit number
    kDouble,     ///< %f, a double, written with six decimals
};

/// Says which kind an argument type is; a type without a kind cannot be formatted.
template <class T>
consteval LumFormatKind LumFormatKindOf() {
    using U = std::decay_t<T>;
    if constexpr (std::is_same_v<U, LumString> || std::is_same_v<U, std::string_view>) {
        return LumFormatKind::kLumString;
    } else if constexpr (std::is_same_v<U, const char*> || std::is_same_v<U, char*>) {
        return LumFormatKind::kText;
    } else if constexpr (std::is_floating_point_v<U>) {
        return LumFormatKind::kDouble;
    } else {
        static_assert(std::is_integral_v<U> && !std::is_same_v<U, bool>, "no format letter takes this type");
        if constexpr (sizeof(U) > 4) {
            static_assert(std::is_signed_v<U>, "no format letter takes an unsigned 64-bit number");
            return LumFormatKind::kInt64;
        } else {
            return std::is_signed_v<U> ? LumFormatKind::kInt32 : LumFormatKind::kUint32;
        }
    }
}

/// Counts the format letters of `text` and compares them with `kinds`. Throws, which stops the compiler,
/// where a letter is unknown, does not fit its argument, or has none.
consteval void LumCheckFormat(std::string_view text, const LumFormatKind* kinds, std::size_t count) {
    std::size_t used = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            continue;
        }
        ++i;
        if (i >= text.size()) {
            throw "a format text ends in a lone percent sign";
        }
        if (text[i] == '%') {
            continue;
        }
        if (used >= count) {
            throw "a format letter has no argument";
        }
        const LumFormatKind kind = kinds[used++];
        const bool isLong = text[i] == 'l';
        if (isLong && (++i >= text.size() || text[i] != 'd')) {
            throw "%l is followed by something other than d";
        }
        const bool fits = isLong           ? kind == LumFormatKind::kInt64
                          : text[i] == 'S' ? kind == LumFormatKind::kLumString
                          : text[i] == 's' ? kind == LumFormatKind::kText
                          : text[i] == 'd' ? kind == LumFormatKind::kInt32
                          : text[i] == 'u' ? kind == LumFormatKind::kUint32
                          : text[i] == 'f' ? kind == LumFormatKind::kDouble
                                           : throw "an unknown format letter";
        if (!fits) {
            throw "a format letter does not fit its argument";
        }
    }
    if (used != count) {
        throw "an argument has no format letter";
    }
}

/// A format text that was checked against the types of its arguments when it was compiled.
template <class... Args>
class LumFormat {
public:
    // NOLINTNEXTLINE(google-explicit-constructor): a literal is to be usable as it stands.
    consteval LumFormat(const char* text) : text_(text) {
        constexpr LumFormatKind kinds[] = {LumFormatKindOf<Args>()..., LumFormatKind::kText};
        LumCheckFormat(text_, kinds, sizeof...(Args));
    }

    [[nodiscard]] constexpr std::string_view Text() const { return text_; }

private:
    std::string_view text_;
};

/// The format text as a parameter: its argument types come from the arguments alone.
template <class... Args>
using LumFormatFor = LumFormat<std::type_identity_t<Args>...>;

/// One argument of a format text. Refers to a text argument, which must outlive it.
union LumFormatArg {
    std::string_view string;
    const char* text;
    int64_t number;
    double real;
};

inline LumFormatArg LumMakeFormatArg(const LumString& value);  // defined beside LumString
inline LumFormatArg LumMakeFormatArg(std::string_view value) {
    return {.string = value};
}
inline LumFormatArg LumMakeFormatArg(const char* value) {
    return {.text = value};
}
template <class T>
requires std::is_integral_v<T> LumFormatArg LumMakeFormatArg(T value) {
    return {.number = static_cast<int64_t>(value)};
}
inline LumFormatArg LumMakeFormatArg(double value) {
    return {.real = value};
}

/// Appends `format`, filled with `args`, to `out`. The format must have been checked against the arguments. A
/// null %s argument counts as empty.
LUM_API void LumAppendFormatted(std::string& out, std::string_view format, const LumFormatArg* args);

/// Appends a whole number as %ld does, or a double as %f does: in the program's own notation, whatever the
/// locale.
LUM_API void LumAppendNumber(std::string& out, int64_t value);
LUM_API void LumAppendDouble(std::string& out, double value);
