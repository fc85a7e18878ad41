#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// What a batch is known by from the outbox to the database: the device that sent it and the digest of its
/// content. The same content from the same device is the same batch, however often and by whatever way it
/// comes.
struct BatchKey {
    std::string device;
    std::string digest;  ///< SHA-256 as 64 hexadecimal digits in lower case

    [[nodiscard]] bool operator==(const BatchKey& other) const = default;
};

inline constexpr std::size_t kMaxDeviceNameLength = 64;
/// Number of hexadecimal digits of a digest.
inline constexpr std::size_t kDigestLength = 64;

/// True for 1 to kMaxDeviceNameLength letters A to Z in either case, digits, '_' and '-': what is one token
/// of a subject, and means nothing but itself in a shell, in a path and in SQL.
[[nodiscard]] bool IsDeviceName(std::string_view text);

/// True for 64 hexadecimal digits in lower case.
[[nodiscard]] bool IsDigest(std::string_view text);

/// "<device>:<digest>".
[[nodiscard]] std::string KeyText(const BatchKey& key);

/// The reverse of KeyText. False, and `key` untouched, for any other text.
[[nodiscard]] bool ParseKey(std::string_view text, BatchKey& key);
