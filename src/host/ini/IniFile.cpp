#include "host/ini/IniFile.h"

// Text stays the bytes that it is, so none of the library's conversions is wanted.
#define SI_NO_CONVERSION
#define SI_IMPLEMENTATION
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include <SimpleIni.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"

namespace {

constexpr std::size_t kMaxFileBytes = 4U << 20U;
constexpr std::string_view kLineBreaks = "\r\n";
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

constexpr std::string_view kLoadRoutine = "IniFile::Load";
constexpr std::string_view kWriteRoutine = "IniFile::WriteEntryValue";
constexpr std::string_view kDeleteRoutine = "IniFile::DeleteEntry";

LumString SystemReason() {
    return LumString(std::generic_category().message(errno));
}

bool Refuse(std::string_view routine, const LumString& path, const LumString& reason) {
    LumHostDebug().WarningWithNL("%S: %S: %S", routine, path, reason);
    return false;
}

/// Reads the file whole. A missing one is empty; false, and one warning, for one that cannot be read.
bool Load(const LumString& path, std::string& text) {
    LumString reason;
    if (!FileRead(path, kMaxFileBytes, text, reason)) {
        return errno == ENOENT || Refuse(kLoadRoutine, path, reason);
    }
    if (text.find('\0') != std::string::npos) {
        text.clear();
        return Refuse(kLoadRoutine, path, "Not a text file");
    }
    return true;
}

/// The entries of a text, as readers see them.
class IniEntries {
public:
    explicit IniEntries(const std::string& text) : loaded_(ini_.LoadData(text) >= 0) {}

    /// The value of the first entry of that name, or null.
    [[nodiscard]] const char* Find(const LumString& section, const LumString& key) const {
        // A name with a null byte would be compared only up to it.
        if (!loaded_ || HasNull(section) || HasNull(key)) {
            return nullptr;
        }
        return ini_.GetValue(section.GetString(), key.GetString());
    }

    [[nodiscard]] std::vector<std::pair<LumString, LumString>> List(const LumString& section) const {
        const CSimpleIniA::TKeyVal* const found =
            loaded_ && !HasNull(section) ? ini_.GetSection(section.GetString()) : nullptr;
        if (found == nullptr) {
            return {};
        }
        std::vector<CSimpleIniA::TKeyVal::const_pointer> ordered;
        for (const auto& entry : *found) {
            ordered.push_back(&entry);
        }
        std::sort(ordered.begin(), ordered.end(),
                  [](const auto* a, const auto* b) { return a->first.nOrder < b->first.nOrder; });
        std::vector<std::pair<LumString, LumString>> list;
        list.reserve(ordered.size());
        for (const auto* entry : ordered) {
            list.emplace_back(entry->first.pItem, entry->second);
        }
        return list;
    }

private:
    static bool HasNull(const LumString& text) { return text.View().find('\0') != std::string_view::npos; }

    CSimpleIniA ini_{true, true, false};
    const bool loaded_;
};

std::optional<LumString> ReadValue(const LumString& path, const LumString& section, const LumString& key) {
    std::string text;
    if (!Load(path, text)) {
        return std::nullopt;
    }
    const IniEntries entries(text);
    const char* const value = entries.Find(section, key);
    return value != nullptr ? std::optional<LumString>(value) : std::nullopt;
}

/// One line of the text, as positions in it.
struct IniLine {
    enum class Kind : uint8_t { kOther, kSection, kBrokenSection, kEntry };

    std::size_t begin = 0;
    std::size_t end = 0;   // of the content
    std::size_t next = 0;  // where the following line begins
    Kind kind = Kind::kOther;
    std::string_view name;       // of the section or key
    std::size_t valueBegin = 0;  // of an entry
};

std::string_view Trimmed(std::string_view text) {
    const std::size_t first = std::min(text.find_first_not_of(kBlanks), text.size());
    return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

/// Says what the line's content is, by the rules that the reading library has.
void Classify(std::string_view text, IniLine& line) {
    const std::string_view content = text.substr(line.begin, line.end - line.begin);
    const std::size_t first = content.find_first_not_of(kBlanks);
    if (first == std::string_view::npos || content[first] == ';' || content[first] == '#') {
        return;
    }
    if (content[first] == '[') {
        const std::size_t close = content.find(']', first);
        line.kind = close == std::string_view::npos ? IniLine::Kind::kBrokenSection : IniLine::Kind::kSection;
        line.name = Trimmed(content.substr(first + 1, close - first - 1));
        return;
    }
    const std::size_t equals = content.find('=');
    if (equals == std::string_view::npos || equals == first) {
        return;
    }
    line.kind = IniLine::Kind::kEntry;
    line.name = Trimmed(content.substr(0, equals));
    line.valueBegin = line.begin + std::min(content.find_first_not_of(kBlanks, equals + 1), content.size());
}

IniLine ReadLine(std::string_view text, std::size_t begin) {
    IniLine line;
    line.begin = begin;
    line.end = std::min(text.find_first_of(kLineBreaks, begin), text.size());
    const std::size_t breakLength = text.substr(line.end).starts_with("\r\n") ? 2 : 1;
    line.next = std::min(line.end + breakLength, text.size());
    Classify(text, line);
    return line;
}

/// Where a key and its section stand in a text.
struct IniPlace {
    std::vector<IniLine> entries;
    std::optional<std::size_t> sectionEnd;  // behind its last entry, or its heading
    std::string_view lineBreak = "\n";
};

IniPlace Locate(std::string_view text, const LumString& section, const LumString& key) {
    IniPlace place;
    const std::size_t start = text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
    bool inSection = section.IsEmpty();
    if (inSection) {
        place.sectionEnd = start;
    }
    for (std::size_t at = start; at < text.size();) {
        const IniLine line = ReadLine(text, at);
        if (at == start && line.next > line.end) {
            place.lineBreak = text.substr(line.end, line.next - line.end);
        }
        at = line.next;
        if (line.kind == IniLine::Kind::kSection) {
            inSection = section.IsEqualTo(LumString(line.name), false);
        } else if (line.kind == IniLine::Kind::kBrokenSection) {
            inSection = false;
        } else if (line.kind == IniLine::Kind::kOther) {
            continue;
        }
        if (!inSection) {
            continue;
        }
        place.sectionEnd = line.next;
        if (line.kind == IniLine::Kind::kEntry && key.IsEqualTo(LumString(line.name), false)) {
            place.entries.push_back(line);
        }
    }
    return place;
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

std::string WithEntry(const std::string& text, const LumString& section, const LumString& key,
                      const LumString& value) {
    const IniPlace place = Locate(text, section, key);
    if (!place.entries.empty()) {
        const IniLine& line = place.entries.front();
        return std::string(text).replace(line.valueBegin, line.end - line.valueBegin, value.View());
    }
    LumString entry = key + " =";
    if (!value.IsEmpty()) {
        entry.Append(" ").Append(value);
    }
    if (place.sectionEnd.has_value()) {
        return WithLine(text, *place.sectionEnd, entry.View(), place.lineBreak);
    }
    LumString heading;
    heading.Printf("[%S]", section);
    std::string edited = text.empty() ? text : WithLine(text, text.size(), "", place.lineBreak);
    edited = WithLine(edited, edited.size(), heading.View(), place.lineBreak);
    return WithLine(edited, edited.size(), entry.View(), place.lineBreak);
}

std::string WithoutEntry(const std::string& text, const LumString& section, const LumString& key) {
    const IniPlace place = Locate(text, section, key);
    std::string edited = text;
    std::for_each(place.entries.rbegin(), place.entries.rend(),
                  [&](const IniLine& line) { edited.erase(line.begin, line.next - line.begin); });
    return edited;
}

/// Holds the lock that all writers of a directory's ini files share.
class DirectoryLock {
public:
    explicit DirectoryLock(const std::string& directory)
        : fd_(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        while (fd_ >= 0 && flock(fd_, LOCK_EX) != 0) {
            if (errno != EINTR) {
                close(std::exchange(fd_, -1));
            }
        }
    }
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;
    ~DirectoryLock() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }

    [[nodiscard]] bool IsHeld() const { return fd_ >= 0; }

private:
    int fd_;
};

bool FitsOneLine(const LumString& text) {
    return text.View().find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

/// Where the file lies really: a link to it stays a link when its target is replaced.
std::string TargetOf(const LumString& path) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::canonical(path.GetString(), error);
    return error ? std::string(path.View()) : target.string();
}

/// Sets one key, or removes it where there is no value, under the lock.
bool Edit(std::string_view routine, const LumString& path, const LumString& section, const LumString& key,
          const std::optional<LumString>& value) {
    if (!FitsOneLine(section) || !FitsOneLine(key) || (value.has_value() && !FitsOneLine(*value))) {
        return Refuse(routine, path, "A line break or null byte in a name or value");
    }
    const LumString target(TargetOf(path));
    const std::filesystem::path directory = std::filesystem::path(target.View()).parent_path();
    const DirectoryLock lock(directory.empty() ? "." : directory.string());
    if (!lock.IsHeld()) {
        return Refuse(routine, path, SystemReason());
    }
    std::string text;
    if (!Load(target, text)) {
        return false;
    }
    const std::string edited =
        value.has_value() ? WithEntry(text, section, key, *value) : WithoutEntry(text, section, key);
    const IniEntries entries(edited);
    const char* const found = entries.Find(section, key);
    if (value.has_value() ? found == nullptr || !(*value == found) : found != nullptr) {
        return Refuse(routine, path, "The name or value would not be read back as it is");
    }
    if (edited.size() > kMaxFileBytes) {
        return Refuse(routine, path, "The file would become too large to be read");
    }
    LumString reason;
    return edited == text || FileReplace(target, edited, reason) || Refuse(routine, path, reason);
}

std::optional<bool> ParseBool(const LumString& text) {
    constexpr const char* kTrue[] = {"1", "true", "yes", "on"};
    constexpr const char* kFalse[] = {"0", "false", "no", "off"};
    const auto matches = [&](const char* word) { return text.IsEqualTo(word, false); };
    if (std::any_of(std::begin(kTrue), std::end(kTrue), matches)) {
        return true;
    }
    if (std::any_of(std::begin(kFalse), std::end(kFalse), matches)) {
        return false;
    }
    return std::nullopt;
}

std::optional<int32_t> ParseInt(const LumString& text) {
    int32_t value = 0;
    const std::string_view digits = text.View();
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    const bool whole = error == std::errc() && end == digits.data() + digits.size();
    return whole ? std::optional<int32_t>(value) : std::nullopt;
}

}  // namespace

bool IniFile::GetEntryValue(const LumString& section, const LumString& key, bool& value,
                            bool defaultValue) const {
    const std::optional<LumString> text = ReadValue(path_, section, key);
    const std::optional<bool> parsed = text.has_value() ? ParseBool(*text) : std::nullopt;
    value = parsed.value_or(defaultValue);
    return parsed.has_value();
}

bool IniFile::GetEntryValue(const LumString& section, const LumString& key, int32_t& value,
                            int32_t defaultValue) const {
    const std::optional<LumString> text = ReadValue(path_, section, key);
    const std::optional<int32_t> parsed = text.has_value() ? ParseInt(*text) : std::nullopt;
    value = parsed.value_or(defaultValue);
    return parsed.has_value();
}

bool IniFile::GetEntryValue(const LumString& section, const LumString& key, LumString& value,
                            const LumString& defaultValue) const {
    const std::optional<LumString> text = ReadValue(path_, section, key);
    value = text.value_or(defaultValue);
    return text.has_value();
}

std::vector<std::pair<LumString, LumString>> IniFile::GetEntries(const LumString& section) const {
    std::string text;
    return Load(path_, text) ? IniEntries(text).List(section)
                             : std::vector<std::pair<LumString, LumString>>();
}

bool IniFile::WriteEntryValue(const LumString& section, const LumString& key, int32_t value) {
    LumString text;
    text.Printf("%d", value);
    return WriteEntryValue(section, key, text);
}

bool IniFile::WriteEntryValue(const LumString& section, const LumString& key, const LumString& value) {
    return Edit(kWriteRoutine, path_, section, key, value);
}

bool IniFile::DeleteEntry(const LumString& section, const LumString& key) {
    return Edit(kDeleteRoutine, path_, section, key, std::nullopt);
}
