#include "host/ini/internal/IniText.h"

#include <algorithm>

namespace {

constexpr std::string_view kLineBreaks = "\r\n";
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string_view Trimmed(std::string_view text) {
    const std::size_t first = std::min(text.find_first_not_of(kBlanks), text.size());
    return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

bool IsNamed(std::string_view name, const LumString& wanted) {
    return wanted.IsEqualTo(LumString(name), false);
}

/// The lines of a text one after the other, and the section that each stands in.
class IniWalk {
public:
    explicit IniWalk(std::string_view text)
        : text_(text), next_(text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0) {}

    /// Goes to the next line; false after the last.
    bool Next() {
        begin_ = next_;
        if (begin_ == text_.size()) {
            return false;
        }
        end_ = std::min(text_.find_first_of(kLineBreaks, begin_), text_.size());
        next_ = std::min(end_ + (text_.substr(end_).starts_with("\r\n") ? 2 : 1), text_.size());
        key_ = value_ = {};
        Classify(text_.substr(begin_, end_ - begin_));
        return true;
    }

    /// Whether the line is the heading of `section` or an entry in it.
    [[nodiscard]] bool BelongsTo(const LumString& section) const {
        return (isHeading_ || IsEntry()) && section_.has_value() && IsNamed(*section_, section);
    }
    [[nodiscard]] bool IsEntry() const { return !key_.empty(); }
    [[nodiscard]] bool IsEntry(const LumString& section, const LumString& key) const {
        return IsEntry() && BelongsTo(section) && IsNamed(key_, key);
    }
    [[nodiscard]] std::string_view Key() const { return key_; }
    [[nodiscard]] std::string_view Value() const { return value_; }
    /// Positions in the text: of the line, of its end without the line break, of the line after it.
    [[nodiscard]] std::size_t Begin() const { return begin_; }
    [[nodiscard]] std::size_t End() const { return end_; }
    [[nodiscard]] std::size_t After() const { return next_; }

private:
    void Classify(std::string_view line) {
        const std::size_t first = line.find_first_not_of(kBlanks);
        isHeading_ = first != std::string_view::npos && line[first] == '[';
        if (first == std::string_view::npos || line[first] == ';' || line[first] == '#') {
            return;
        }
        if (isHeading_) {
            // What stands below a heading that is not closed belongs to no section.
            const std::size_t close = line.find(']', first);
            const bool isClosed = close != std::string_view::npos;
            section_ =
                isClosed ? std::optional(Trimmed(line.substr(first + 1, close - first - 1))) : std::nullopt;
            return;
        }
        const std::size_t equals = line.find('=');
        if (equals != std::string_view::npos) {
            key_ = Trimmed(line.substr(0, equals));
            value_ = Trimmed(line.substr(equals + 1));
        }
    }

    const std::string_view text_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::size_t next_;
    bool isHeading_ = false;
    std::optional<std::string_view> section_ = "";
    std::string_view key_;
    std::string_view value_;
};

/// The line break that the first line of the text ends in.
std::string_view LineBreakOf(std::string_view text) {
    IniWalk walk(text);
    return walk.Next() && walk.After() > walk.End() ? text.substr(walk.End(), walk.After() - walk.End())
                                                    : "\n";
}

/// `text` with a line at `at`, which is the begin of a line or the end of the text.
std::string WithLine(const std::string& text, std::size_t at, std::string_view line,
                     std::string_view lineBreak) {
    std::string edited = text.substr(0, at);
    const bool opensLine = edited.empty() || edited == kByteOrderMark ||
                           kLineBreaks.find(edited.back()) != std::string_view::npos;
    return edited.append(opensLine ? std::string_view() : lineBreak)
        .append(line)
        .append(lineBreak)
        .append(text, at);
}

}  // namespace

std::optional<std::string_view> IniFind(std::string_view text, const LumString& section,
                                        const LumString& key) {
    for (IniWalk walk(text); walk.Next();) {
        if (walk.IsEntry(section, key)) {
            return walk.Value();
        }
    }
    return std::nullopt;
}

std::vector<std::pair<std::string_view, std::string_view>> IniList(std::string_view text,
                                                                   const LumString& section) {
    std::vector<std::pair<std::string_view, std::string_view>> list;
    for (IniWalk walk(text); walk.Next();) {
        if (walk.IsEntry() && walk.BelongsTo(section)) {
            list.emplace_back(walk.Key(), walk.Value());
        }
    }
    return list;
}

std::string IniWithEntry(const std::string& text, const LumString& section, const LumString& key,
                         std::string_view value) {
    std::optional<std::size_t> sectionEnd;
    if (section.IsEmpty()) {
        sectionEnd = text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
    }
    for (IniWalk walk(text); walk.Next();) {
        if (walk.IsEntry(section, key)) {
            const std::size_t begin = text.find_first_not_of(kBlanks, text.find('=', walk.Begin()) + 1);
            const std::size_t at = std::min(begin, walk.End());
            return std::string(text).replace(at, walk.End() - at, value);
        }
        sectionEnd = walk.BelongsTo(section) ? walk.After() : sectionEnd;
    }
    const std::string_view lineBreak = LineBreakOf(text);
    std::string entry(key.View());
    entry.append(value.empty() ? " =" : " = ").append(value);
    if (sectionEnd.has_value()) {
        return WithLine(text, *sectionEnd, entry, lineBreak);
    }
    std::string edited = text.empty() ? text : WithLine(text, text.size(), "", lineBreak);
    edited = WithLine(edited, edited.size(), "[" + std::string(section.View()) + "]", lineBreak);
    return WithLine(edited, edited.size(), entry, lineBreak);
}

std::string IniWithoutEntry(const std::string& text, const LumString& section, const LumString& key) {
    std::string edited;
    std::size_t kept = 0;
    for (IniWalk walk(text); walk.Next();) {
        if (walk.IsEntry(section, key)) {
            edited.append(text, kept, walk.Begin() - kept);
            kept = walk.After();
        }
    }
    return edited.append(text, kept);
}
