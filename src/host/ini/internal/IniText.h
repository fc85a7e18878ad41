#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/text/LumString.h"

/// The text of an ini file, without null bytes. What these routines return lives as long as the text.

/// The value of the first entry of that name in that section; none where there is no such entry.
[[nodiscard]] std::optional<std::string_view> IniFind(std::string_view text, const LumString& section,
                                                      const LumString& key);

/// All entries of a section in their order, as (key, value).
[[nodiscard]] std::vector<std::pair<std::string_view, std::string_view>> IniList(std::string_view text,
                                                                                 const LumString& section);

/// The text with `value` in place of the first entry's, or in a new line at the end of the section, or in a
/// new section at the end. Every other byte stays. The caller checks that it is read back: not every name or
/// value can be.
[[nodiscard]] std::string IniWithEntry(const std::string& text, const LumString& section,
                                       const LumString& key, std::string_view value);

/// The text without the lines of the entries of that name.
[[nodiscard]] std::string IniWithoutEntry(const std::string& text, const LumString& section,
                                          const LumString& key);
