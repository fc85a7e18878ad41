#include "host/database/internal/statement/StatementShape.h"

#include <cstring>

#include "host/text/LumAscii.h"

namespace {

constexpr std::string_view kInsert = "INSERT INTO ";
constexpr std::string_view kValues = "VALUES";

/// A number of so many digits fits 64 bits whatever the digits are.
constexpr std::ptrdiff_t kMaxDigits = 18;

/// What SQLite takes for a blank between words.
bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

/// A letter of a name that needs no quotes. SQLite takes every byte above 127 for a letter.
bool IsNameLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
           static_cast<unsigned char>(c) > 127;
}

const char* SkipBlanks(const char* at, const char* end) {
    while (at < end && IsBlank(*at)) {
        ++at;
    }
    return at;
}

const char* Find(const char* at, const char* end, char c) {
    return static_cast<const char*>(std::memchr(at, c, static_cast<std::size_t>(end - at)));
}

bool StartsWith(const char* at, const char* end, std::string_view text) {
    return static_cast<std::size_t>(end - at) >= text.size() &&
           std::memcmp(at, text.data(), text.size()) == 0;
}

/// Behind the parenthesis that opens the values, or null.
const char* FindValues(const char* at, const char* end) {
    const char* const open = Find(at, end, '(');
    if (open == nullptr) {
        return nullptr;
    }
    const char* wordEnd = open;
    while (wordEnd > at && IsBlank(wordEnd[-1])) {
        --wordEnd;
    }
    if (std::string_view(at, static_cast<std::size_t>(wordEnd - at)).ends_with(kValues)) {
        return open + 1;
    }
    const char* const close = Find(open, end, ')');
    if (close == nullptr) {
        return nullptr;
    }
    const char* const values = SkipBlanks(close + 1, end);
    if (!StartsWith(values, end, kValues)) {
        return nullptr;
    }
    const char* const second = SkipBlanks(values + kValues.size(), end);
    return second < end && *second == '(' ? second + 1 : nullptr;
}

/// The place after the digits of a number, or null where there is none. What is left of one that is too long
/// is neither comma nor parenthesis, and so no number that a caller would take.
const char* ReadNumber(const char* at, const char* end, int64_t& number) {
    const bool negative = *at == '-';
    if (negative) {
        ++at;
    }
    const char* const first = at;
    int64_t value = 0;
    for (; at < end && IsAsciiDigit(*at) && at - first < kMaxDigits; ++at) {
        value = value * 10 + (*at - '0');
    }
    if (at == first) {
        return nullptr;
    }
    number = negative ? -value : value;
    return at;
}

/// True where nothing but blanks and one semicolon is left.
bool IsEnd(const char* at, const char* end) {
    at = SkipBlanks(at, end);
    if (at < end && *at == ';') {
        at = SkipBlanks(at + 1, end);
    }
    return at == end;
}

/// Reads the words of a prefix one by one.
class PrefixReader {
public:
    explicit PrefixReader(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

    [[nodiscard]] bool TakeName() {
        at_ = SkipBlanks(at_, end_);
        if (at_ == end_ || !IsNameLetter(*at_)) {
            return false;
        }
        while (at_ < end_ && (IsNameLetter(*at_) || IsAsciiDigit(*at_))) {
            ++at_;
        }
        return true;
    }

    [[nodiscard]] bool Take(char c) {
        at_ = SkipBlanks(at_, end_);
        if (at_ == end_ || *at_ != c) {
            return false;
        }
        ++at_;
        return true;
    }

    [[nodiscard]] bool IsAtEnd() const { return at_ == end_; }

private:
    const char* at_;
    const char* const end_;
};

}  // namespace

bool StatementShape::Recognise(std::string_view sql) {
    const char* const begin = sql.data();
    const char* const end = begin + sql.size();
    if (!StartsWith(begin, end, kInsert)) {
        return false;
    }
    const char* const values = FindValues(begin + kInsert.size(), end);
    if (values == nullptr) {
        return false;
    }
    prefix_ = std::string_view(begin, static_cast<std::size_t>(values - begin));
    return ReadLiterals(values, end);
}

bool StatementShape::ReadLiterals(const char* at, const char* end) {
    for (count_ = 0; count_ < kMaxLiterals;) {
        at = SkipBlanks(at, end);
        if (at == end) {
            return false;
        }
        StatementLiteral& literal = literals_[count_];
        if (*at == '\'') {
            at = ReadText(at + 1, end, literal);
        } else {
            literal.text = nullptr;
            at = ReadNumber(at, end, literal.number);
        }
        if (at == nullptr) {
            return false;
        }
        ++count_;
        at = SkipBlanks(at, end);
        if (at == end) {
            return false;
        }
        if (*at == ')') {
            return IsEnd(at + 1, end);
        }
        if (*at++ != ',') {
            return false;
        }
    }
    return false;
}

const char* StatementShape::ReadText(const char* at, const char* end, StatementLiteral& literal) {
    const char* quote = Find(at, end, '\'');
    if (quote == nullptr) {
        return nullptr;
    }
    if (quote + 1 == end || quote[1] != '\'') {
        literal.text = at;
        literal.length = static_cast<uint32_t>(quote - at);
        return quote + 1;
    }
    // The texts of one statement are never longer than the statement, so none of them moves once it is there.
    if (undoubled_.capacity() < prefix_.size() + static_cast<std::size_t>(end - at)) {
        undoubled_.reserve(prefix_.size() + static_cast<std::size_t>(end - prefix_.data()));
    }
    const std::size_t start = undoubled_.size();
    while (quote + 1 < end && quote[1] == '\'') {
        undoubled_.append(at, quote + 1);
        at = quote + 2;
        quote = Find(at, end, '\'');
        if (quote == nullptr) {
            return nullptr;
        }
    }
    undoubled_.append(at, quote);
    literal.text = undoubled_.data() + start;
    literal.length = static_cast<uint32_t>(undoubled_.size() - start);
    return quote + 1;
}

bool StatementShape::HasPlainPrefix() const {
    PrefixReader reader(prefix_.substr(kInsert.size()));
    if (!reader.TakeName()) {
        return false;
    }
    if (reader.Take('(')) {
        do {
            if (!reader.TakeName()) {
                return false;
            }
        } while (reader.Take(','));
        if (!reader.Take(')')) {
            return false;
        }
    }
    return reader.TakeName() && reader.Take('(') && reader.IsAtEnd();
}

std::string StatementShape::Parametrised() const {
    std::string text(prefix_);
    for (std::size_t i = 0; i < count_; ++i) {
        text.append(i == 0 ? "?" : ",?");
    }
    return text.append(")");
}
