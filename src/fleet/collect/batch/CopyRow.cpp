#include "fleet/collect/batch/CopyRow.h"

#include <array>
#include <bit>
#include <concepts>
#include <cstddef>

#include "host/text/LumUtf8.h"

namespace {

/// 2000-01-01, where the database's count of microseconds begins, in seconds since 1970.
constexpr int64_t kDatabaseEpoch = 946'684'800;
constexpr int64_t kMicrosecondsPerSecond = 1'000'000;
constexpr char kSignature[] = "PGCOPY\n\377\r\n\0\0\0\0\0\0\0\0\0";
constexpr char kTrailer[] = "\377\377";
constexpr unsigned kByteBits = 8;

template <std::unsigned_integral Number>
std::array<char, sizeof(Number)> BigEndian(Number number) {
    std::array<char, sizeof(Number)> bytes{};
    for (std::size_t i = sizeof(Number); i > 0; --i) {
        bytes[i - 1] = static_cast<char>(number & 0xFFU);
        number = static_cast<Number>(static_cast<uint64_t>(number) >> kByteBits);
    }
    return bytes;
}

template <std::size_t kSize>
std::string_view View(const std::array<char, kSize>& bytes) {
    return {bytes.data(), bytes.size()};
}

}  // namespace

std::string_view CopyStart() {
    return {kSignature, sizeof(kSignature) - 1};
}

std::string_view CopyEnd() {
    return {kTrailer, sizeof(kTrailer) - 1};
}

void CopyRows::BeginRow(int16_t fields) {
    bytes_.append(View(BigEndian(static_cast<uint16_t>(fields))));
}

void CopyRows::Field(std::string_view value) {
    bytes_.append(View(BigEndian(static_cast<uint32_t>(value.size())))).append(value);
}

void CopyRows::Null() {
    bytes_.append(View(BigEndian(UINT32_MAX)));
}

void CopyRows::Int32(int32_t value) {
    Field(View(BigEndian(static_cast<uint32_t>(value))));
}

void CopyRows::Int64(int64_t value) {
    Field(View(BigEndian(static_cast<uint64_t>(value))));
}

void CopyRows::Double(double value) {
    Field(View(BigEndian(std::bit_cast<uint64_t>(value))));
}

void CopyRows::Bool(bool value) {
    Field(value ? std::string_view("\1", 1) : std::string_view("\0", 1));
}

void CopyRows::Timestamp(int64_t seconds) {
    Int64((seconds - kDatabaseEpoch) * kMicrosecondsPerSecond);
}

void CopyRows::Text(std::string_view text) {
    if (text.find('\0') == std::string_view::npos && LumIsUtf8(text)) {
        Field(text);
    } else {
        Field(StorableText(text));
    }
}

void CopyRows::Json(std::string_view text) {
    constexpr char version = 1;
    bytes_.append(View(BigEndian(static_cast<uint32_t>(text.size() + 1)))).append(1, version).append(text);
}

void OverwriteInt64(std::string& bytes, std::size_t offset, int64_t value) {
    bytes.replace(offset, sizeof(value), View(BigEndian(static_cast<uint64_t>(value))));
}

std::string StorableText(std::string_view text) {
    std::string storable;
    for (std::size_t position = 0; position < text.size();) {
        const char32_t character = LumNextUtf8(text, position);
        LumAppendUtf8(storable, character == 0 ? kLumReplacementCharacter : character);
    }
    return storable;
}
