#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

/// The names of the files in the outbox. All of them are made or taken apart here.

inline constexpr std::size_t kMaxLabelLength = 100;
/// Leaves room for the description's extension within the 255 bytes that a name may have.
inline constexpr std::size_t kMaxFileNameLength = 200;

/// `text` as a name that means nothing but itself in any directory and in any shell: letters A to Z in either
/// case, digits, '.', '_' and '-' stay, every other byte, and a '.' or '-' at the start, becomes '_'. Cut at
/// `maxLength` bytes; "file" where nothing is left.
[[nodiscard]] std::string SafeName(std::string_view text, std::size_t maxLength);

/// "<UTC time>-<number>-<label>.cbor", the time as 20261121T011025Z; `seconds` since 1970, `label` made safe.
[[nodiscard]] std::string DerivedName(std::time_t seconds, uint64_t number, std::string_view label);

/// What a derived name says.
struct DerivedNameParts {
    std::string receivedAt;  ///< as UtcTimeText writes it
    uint64_t number = 0;
    std::string label;
};

/// False, and `parts` untouched, for a name that DerivedName does not make.
[[nodiscard]] bool ParseDerivedName(std::string_view name, DerivedNameParts& parts);

/// Name of the description that stands beside the file: its stem with ".json".
[[nodiscard]] std::string DescriptionName(std::string_view fileName);

[[nodiscard]] bool IsDescriptionName(std::string_view name);

/// `seconds` since 1970 as UTC in ISO 8601, "2026-11-21T01:10:25Z".
[[nodiscard]] std::string UtcTimeText(std::time_t seconds);
