#include "host/database/internal/statement/StatementText.h"

#include "host/text/LumAscii.h"
#include "host/text/LumUtf8.h"

namespace {

/// A byte of a name or of a word. SQLite takes every byte above 127 for a letter.
bool IsNameByte(char c) {
    return IsAsciiDigit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == '$' ||
           static_cast<unsigned char>(c) > 127;
}

/// After the text in quotes that begins at `at`; a doubled quote belongs to it.
std::size_t EndOfQuoted(std::string_view sql, std::size_t at, char quote) {
    for (++at; at < sql.size(); ++at) {
        if (sql[at] == quote) {
            if (at + 1 == sql.size() || sql[at + 1] != quote) {
                return at + 1;
            }
            ++at;
        }
    }
    return at;
}

/// After the number that begins at `at`, in any of its forms: 12, 1.5, .5, 1e-5, 0x1F.
std::size_t EndOfNumber(std::string_view sql, std::size_t at) {
    for (; at < sql.size(); ++at) {
        const bool isExponentSign = (sql[at] == '-' || sql[at] == '+') && (sql[at - 1] | 0x20) == 'e';
        if (!IsNameByte(sql[at]) && sql[at] != '.' && !isExponentSign) {
            break;
        }
    }
    return at;
}

std::size_t EndOfWord(std::string_view sql, std::size_t at) {
    while (at < sql.size() && IsNameByte(sql[at])) {
        ++at;
    }
    return at;
}

std::size_t EndOfComment(std::string_view sql, std::size_t at) {
    const bool isLine = sql[at] == '-';
    const std::size_t end = sql.find(isLine ? "\n" : "*/", at + 2);
    return end == std::string_view::npos ? sql.size() : end + (isLine ? 1 : 2);
}

bool StartsNumber(std::string_view sql, std::size_t at) {
    return IsAsciiDigit(sql[at]) || (sql[at] == '.' && at + 1 < sql.size() && IsAsciiDigit(sql[at + 1]));
}

bool StartsComment(std::string_view sql, std::size_t at) {
    const std::string_view two = sql.substr(at, 2);
    return two == "--" || two == "/*";
}

bool StartsBlob(std::string_view sql, std::size_t at) {
    return (sql[at] | 0x20) == 'x' && at + 1 < sql.size() && sql[at + 1] == '\'';
}

/// After the piece of the statement that begins at `at`; `isValue` where it is a literal.
std::size_t EndOfPiece(std::string_view sql, std::size_t at, bool& isValue) {
    isValue = true;
    if (sql[at] == '\'') {
        return EndOfQuoted(sql, at, '\'');
    }
    if (StartsBlob(sql, at)) {
        return EndOfQuoted(sql, at + 1, '\'');
    }
    if (StartsNumber(sql, at)) {
        return EndOfNumber(sql, at + 1);
    }
    isValue = false;
    if (StartsComment(sql, at)) {
        return EndOfComment(sql, at);
    }
    if (sql[at] == '"') {
        return EndOfQuoted(sql, at, '"');
    }
    return IsNameByte(sql[at]) ? EndOfWord(sql, at) : at + 1;
}

std::string_view FirstCharacters(std::string_view text, std::size_t count) {
    std::size_t at = 0;
    for (std::size_t i = 0; i < count && at < text.size(); ++i) {
        LumNextUtf8(text, at);
    }
    return text.substr(0, at);
}

}  // namespace

std::string StatementWithoutValues(std::string_view sql, std::size_t maxCharacters) {
    std::string text;
    // A character has at most four bytes.
    for (std::size_t at = 0; at < sql.size() && text.size() < maxCharacters * 4;) {
        bool isValue = false;
        const std::size_t end = EndOfPiece(sql, at, isValue);
        text.append(isValue ? "?" : sql.substr(at, end - at));
        at = end;
    }
    text.resize(FirstCharacters(text, maxCharacters).size());
    return text;
}
