#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// An ini file: sections of `key = value` lines; a line that begins with ; or # is a comment. Section and key
/// names are compared without letter case. Each operation reads the file anew, so an object is no more than a
/// path and what another process writes is seen at once. A file that is missing reads as empty. One that is
/// there but cannot be read, is not a text or is over 4 MiB gives nothing and changes nothing; an object says
/// the reason once, as a warning of the host's logger, until it has read the file again. An object belongs to
/// one thread at a time.
class LUM_API IniFile {
public:
    IniFile() = default;
    explicit IniFile(const LumString& path) : path_(path) {}

    [[nodiscard]] const LumString& GetPath() const { return path_; }

    /// Each reads one key into `value` and answers true. Where the file, the section or the key is missing,
    /// or the text does not fit, `value` becomes `defaultValue` and the answer is false. Where the file
    /// cannot be read at the moment, `value` stays as it is and the answer is false: whoever hands in what is
    /// in force keeps it. A boolean is 1/0, true/false, yes/no or on/off in any letter case; an integer is
    /// decimal, in the signed 32-bit range.
    bool GetEntryValue(const LumString& section, const LumString& key, bool& value, bool defaultValue) const;
    bool GetEntryValue(const LumString& section, const LumString& key, int32_t& value,
                       int32_t defaultValue) const;
    bool GetEntryValue(const LumString& section, const LumString& key, LumString& value,
                       const LumString& defaultValue) const;

    /// All entries of a section, as (key, value) in file order; a key that stands twice is there twice. Empty
    /// where there is no such section or the file cannot be read.
    [[nodiscard]] std::vector<std::pair<LumString, LumString>> GetEntries(const LumString& section) const;

    /// The same into `entries`; false, and nothing changed, where the file cannot be read at the moment.
    [[nodiscard]] bool ReadEntries(const LumString& section,
                                   std::vector<std::pair<LumString, LumString>>& entries) const;

    /// Writes one key: in place of the value it had, else at the end of its section, else in a new section at
    /// the end of the file. Every other line stays as it is. The file is replaced whole, under a lock that
    /// all writers of the directory share, threads and processes alike. False where the file could not be
    /// written (the reason is one warning of the host's logger) and then the old file is in place.
    bool WriteEntryValue(const LumString& section, const LumString& key, int32_t value);
    bool WriteEntryValue(const LumString& section, const LumString& key, const LumString& value);
    /// Removes a key with its line, the same way. True also where there was none.
    bool DeleteEntry(const LumString& section, const LumString& key);

    /// Deletes what writers that were killed have left unfinished in `directory`.
    static void RemoveLeftovers(const LumString& directory);

private:
    [[nodiscard]] bool Load(std::string& text) const;
    template <class T>
    bool Read(const LumString& section, const LumString& key, T& value, const T& defaultValue,
              std::optional<T> (*parse)(const LumString&)) const;

    LumString path_;
    mutable LumString lastReason_;  // why the file could not be read, the last time
};
