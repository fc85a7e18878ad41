#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Rows in the binary form that COPY takes. (PostgreSQL documentation, "COPY", section "Binary Format".)

/// What stands before the first row and after the last.
[[nodiscard]] std::string_view CopyStart();
[[nodiscard]] std::string_view CopyEnd();

/// Appends rows to a text, field by field.
class CopyRows {
public:
    void BeginRow(int16_t fields);
    void Null();
    void Int32(int32_t value);
    void Int64(int64_t value);
    void Double(double value);
    void Bool(bool value);
    /// `seconds` since 1970, as a timestamp with time zone.
    void Timestamp(int64_t seconds);
    /// What the database cannot keep in a text (the null byte, bytes that are not UTF-8) becomes U+FFFD.
    void Text(std::string_view text);
    /// JSON as jsonb takes it; must be JSON.
    void Json(std::string_view text);

    [[nodiscard]] std::string& GetBytes() { return bytes_; }
    [[nodiscard]] const std::string& GetBytes() const { return bytes_; }

private:
    void Field(std::string_view value);

    std::string bytes_;
};

/// Writes `value` as a 64-bit field over the one whose bytes begin at `offset` of `bytes`.
void OverwriteInt64(std::string& bytes, std::size_t offset, int64_t value);

/// `text` as PostgreSQL takes it for a text: UTF-8 without null bytes.
[[nodiscard]] std::string StorableText(std::string_view text);
