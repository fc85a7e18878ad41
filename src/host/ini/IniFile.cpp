#include "host/ini/IniFile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "host/file/LumFile.h"
#include "host/ini/internal/IniLock.h"
#include "host/ini/internal/IniText.h"
#include "host/log/LumDebug.h"
#include "host/text/LumSystemError.h"

namespace {

constexpr std::size_t kMaxFileBytes = 4U << 20U;

constexpr std::string_view kLoadRoutine = "IniFile::Load";
constexpr std::string_view kWriteRoutine = "IniFile::WriteEntryValue";
constexpr std::string_view kDeleteRoutine = "IniFile::DeleteEntry";

bool Refuse(std::string_view routine, const LumString& path, const LumString& reason) {
    LumHostDebug().WarningWithNL("%S: %S: %S", routine, path, reason);
    return false;
}

/// Reads the file whole; a missing one is empty. False, with the reason, for one that cannot be read.
bool ReadText(const LumString& path, std::string& text, LumString& reason) {
    if (!FileRead(path, kMaxFileBytes, text, reason)) {
        return errno == ENOENT;
    }
    if (text.find('\0') != std::string::npos) {
        reason = "Not a text file";
        return false;
    }
    return true;
}

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
    const IniLock lock(directory.empty() ? "." : directory.string());
    if (!lock.IsHeld()) {
        return Refuse(routine, path, LumSystemErrorText());
    }
    std::string text;
    LumString reason;
    if (!ReadText(target, text, reason)) {
        return Refuse(routine, path, reason);
    }
    const std::string edited = value.has_value() ? IniWithEntry(text, section, key, value->View())
                                                 : IniWithoutEntry(text, section, key);
    const std::optional<std::string_view> found = IniFind(edited, section, key);
    if (found != (value.has_value() ? std::optional(value->View()) : std::nullopt)) {
        return Refuse(routine, path, "The name or value would not be read back as it is");
    }
    if (edited.size() > kMaxFileBytes) {
        return Refuse(routine, path, "The file would become too large to be read");
    }
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

std::optional<LumString> ParseText(const LumString& text) {
    return text;
}

}  // namespace

bool IniFile::Load(std::string& text) const {
    LumString reason;
    if (ReadText(path_, text, reason)) {
        lastReason_.Clear();
        return true;
    }
    if (!(reason == lastReason_)) {
        lastReason_ = reason;
        Refuse(kLoadRoutine, path_, reason);
    }
    return false;
}

template <class T>
bool IniFile::Read(const LumString& section, const LumString& key, T& value, const T& defaultValue,
                   std::optional<T> (*parse)(const LumString&)) const {
    std::string text;
    if (!Load(text)) {
        return false;
    }
    const std::optional<std::string_view> found = IniFind(text, section, key);
    const std::optional<T> parsed = found.has_value() ? parse(LumString(*found)) : std::nullopt;
    value = parsed.value_or(defaultValue);
    return parsed.has_value();
}

bool IniFile::GetEntryValue(const LumString& section, const LumString& key, bool& value,
                            bool defaultValue) const {
    return Read(section, key, value, defaultValue, ParseBool);
}

bool IniFile::GetEntryValue(const LumString& section, const LumString& key, int32_t& value,
                            int32_t defaultValue) const {
    return Read(section, key, value, defaultValue, ParseInt);
}

bool IniFile::GetEntryValue(const LumString& section, const LumString& key, LumString& value,
                            const LumString& defaultValue) const {
    return Read(section, key, value, defaultValue, ParseText);
}

std::vector<std::pair<LumString, LumString>> IniFile::GetEntries(const LumString& section) const {
    std::vector<std::pair<LumString, LumString>> entries;
    static_cast<void>(ReadEntries(section, entries));  // unread, there are none
    return entries;
}

bool IniFile::ReadEntries(const LumString& section,
                          std::vector<std::pair<LumString, LumString>>& entries) const {
    std::string text;
    if (!Load(text)) {
        return false;
    }
    entries.clear();
    for (const auto& [key, value] : IniList(text, section)) {
        entries.emplace_back(LumString(key), LumString(value));
    }
    return true;
}

bool IniFile::WriteEntryValue(const LumString& section, const LumString& key, int32_t value) {
    LumString text;
    text.Printf("%d", value);
    return WriteEntryValue(section, key, text);
}

bool IniFile::WriteEntryValue(const LumString& section, const LumString& key, const LumString& value) {
    return Edit(kWriteRoutine, path_, section, key, value);
}

void IniFile::RemoveLeftovers(const LumString& directory) {
    const IniLock lock(std::string(directory.View()));
    if (lock.IsHeld()) {
        DirRemoveLeftovers(directory);  // nobody is writing now
    }
}

bool IniFile::DeleteEntry(const LumString& section, const LumString& key) {
    return Edit(kDeleteRoutine, path_, section, key, std::nullopt);
}
