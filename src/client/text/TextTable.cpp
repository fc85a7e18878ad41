#include "client/text/TextTable.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cwchar>

#include "host/text/LumUtf8.h"

namespace {

constexpr std::string_view kGap = "  ";
constexpr std::string_view kEllipsis = "\u2026";
constexpr std::string_view kBold = "\x1b[1m";
constexpr std::string_view kPlain = "\x1b[0m";

/// The C library measures characters by the thread's locale, whatever the user's may be: this one is made
/// once, and in force while a scope of it lives.
class Utf8Locale {
public:
    class Scope {
    public:
        Scope() : previous_(Get() != nullptr ? uselocale(Get()) : nullptr) {}
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        ~Scope() {
            if (previous_ != nullptr) {
                static_cast<void>(uselocale(previous_));  // it was valid a moment ago
            }
        }

        /// Columns that a printable character takes, negative for any other. Without a locale that knows
        /// better every character is one column wide.
        [[nodiscard]] int Width(char32_t character) const {
            if (character < 0x7F || previous_ == nullptr) {
                return character < 0x20 || (character >= 0x7F && character < 0xA0) ? -1 : 1;
            }
            return wcwidth(static_cast<wchar_t>(character));
        }

    private:
        locale_t previous_;
    };

private:
    static locale_t Get() {
        static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);  // lives to the end
        return locale;
    }
};

/// The marks of Unicode's bidirectional algorithm (UAX 9), which make text read as what it is not, and the
/// line and paragraph separators.
bool ChangesReadingOrder(char32_t character) {
    return character == 0x061C || character == 0x200E || character == 0x200F ||
           (character >= 0x2028 && character <= 0x202E) || (character >= 0x2066 && character <= 0x2069);
}

void AppendEscaped(std::string& out, char32_t character) {
    switch (character) {
        case U'\n':
            out += "\\n";
            return;
        case U'\r':
            out += "\\r";
            return;
        case U'\t':
            out += "\\t";
            return;
        default:
            break;
    }
    std::array<char, 16> text{};
    const char* const format = character < 0x80 ? "\\x%02x" : character < 0x10000 ? "\\u%04x" : "\\U%08x";
    static_cast<void>(std::snprintf(text.data(), text.size(), format,  // always fits
                                    static_cast<unsigned>(character)));
    out += text.data();
}

std::size_t WidthOf(const Utf8Locale::Scope& locale, std::string_view text) {
    std::size_t width = 0;
    for (std::size_t at = 0; at < text.size();) {
        const int columns = locale.Width(LumNextUtf8(text, at));
        width += columns > 0 ? static_cast<std::size_t>(columns) : 0;
    }
    return width;
}

/// The longest beginning of `text` that with an ellipsis fits into `width` columns.
std::string Cut(const Utf8Locale::Scope& locale, std::string_view text, std::size_t width) {
    std::size_t used = WidthOf(locale, kEllipsis);
    std::size_t end = 0;
    for (std::size_t at = 0; at < text.size(); end = at) {
        const int columns = locale.Width(LumNextUtf8(text, at));
        used += columns > 0 ? static_cast<std::size_t>(columns) : 0;
        if (used > width) {
            break;
        }
    }
    return std::string(text.substr(0, end)) + std::string(kEllipsis);
}

void AppendPadded(std::string& line, const std::string& cell, std::size_t cellWidth, std::size_t width,
                  bool right) {
    const std::string blanks(width - cellWidth, ' ');
    line += right ? blanks + cell : cell + blanks;
}

}  // namespace

std::size_t DisplayWidth(std::string_view text) {
    return WidthOf(Utf8Locale::Scope(), text);
}

std::string Harmless(std::string_view text) {
    const Utf8Locale::Scope locale;
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const char32_t character = LumNextUtf8(text, at);
        if (character == 0 || locale.Width(character) < 0 || ChangesReadingOrder(character)) {
            AppendEscaped(out, character);
        } else {
            LumAppendUtf8(out, character);
        }
    }
    return out;
}

void TextTable::CutTo(std::string& text, std::size_t width) {
    text = Cut(Utf8Locale::Scope(), text, width);
}

void TextTable::AddColumn(std::string_view title, Align align) {
    titles_.push_back(Harmless(title));
    columns_.push_back({align, DisplayWidth(titles_.back())});
}

void TextTable::AddRow(const std::vector<std::string>& cells) {
    const Utf8Locale::Scope locale;
    std::vector<std::string> row(columns_.size());
    for (std::size_t i = 0; i < std::min(row.size(), cells.size()); ++i) {
        row[i] = Harmless(cells[i]);
        std::size_t width = WidthOf(locale, row[i]);
        if (width > kMaxCellWidth) {
            row[i] = Cut(locale, row[i], kMaxCellWidth);
            width = WidthOf(locale, row[i]);
        }
        columns_[i].width = std::max(columns_[i].width, width);
    }
    rows_.push_back(std::move(row));
}

void TextTable::AppendLine(std::string& out, const std::vector<std::string>& cells) const {
    const Utf8Locale::Scope locale;
    std::string line;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        line += i == 0 ? "" : kGap;
        AppendPadded(line, cells[i], WidthOf(locale, cells[i]), columns_[i].width,
                     columns_[i].align == Align::kRight);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out += line + '\n';
}

std::string TextTable::TakeRendered() {
    std::string out;
    if (columns_.empty()) {
        return out;
    }
    if (!hasTitles_) {
        hasTitles_ = true;
        out += boldTitles_ ? kBold : "";
        AppendLine(out, titles_);
        out += boldTitles_ ? kPlain : "";
        std::vector<std::string> rule;
        for (const Column& column : columns_) {
            rule.emplace_back(column.width, '-');
        }
        AppendLine(out, rule);
    }
    for (const std::vector<std::string>& row : rows_) {
        AppendLine(out, row);
    }
    rows_.clear();
    return out;
}

std::string TextTable::Render() {
    hasTitles_ = false;
    return TakeRendered();
}
