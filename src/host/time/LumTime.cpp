#include "host/time/LumTime.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <string_view>

namespace {

// The last answer of LumGmtOffset in one word, so that it is read and written whole: the second asked for,
// the zone it was asked in, and the answer. The mark tells an answer from the empty word.
constexpr uint64_t kMark = 1;
constexpr unsigned kZoneShift = 1;
constexpr unsigned kZoneBits = 13;
constexpr unsigned kOffsetShift = kZoneShift + kZoneBits;
constexpr unsigned kOffsetBits = 18;
constexpr unsigned kSecondShift = kOffsetShift + kOffsetBits;
constexpr uint64_t kKeyMask = ~(((uint64_t{1} << kOffsetBits) - 1) << kOffsetShift);
constexpr int32_t kOffsetLimit = 1 << (kOffsetBits - 1);

std::atomic<uint64_t> lastAnswer{0};

/// A short digest of the process's TZ setting: an answer of another zone is not taken for this one's.
uint64_t ZoneDigest() {
    const char* const zone = std::getenv("TZ");
    uint32_t digest = 2166136261U;  // FNV-1a
    for (const char c : std::string_view(zone != nullptr ? zone : "")) {
        digest = (digest ^ static_cast<unsigned char>(c)) * 16777619U;
    }
    return (digest ^ (digest >> kZoneBits)) & ((1U << kZoneBits) - 1);
}

int32_t ComputeGmtOffset(std::time_t seconds) {
    std::tm local = LocalTime(seconds);
    const int dayLight = local.tm_isdst > 0 ? 1 : 0;
    const auto localSeconds =
        static_cast<uint32_t>(std::mktime(&local)) + 3600U * static_cast<uint32_t>(dayLight);
    return static_cast<int32_t>(localSeconds - static_cast<uint32_t>(LumUtcFieldsAsLocal(seconds)));
}

}  // namespace

std::tm GmTime(std::time_t seconds) {
    std::tm fields{};
    return gmtime_r(&seconds, &fields) != nullptr ? fields : std::tm{};
}

std::tm LocalTime(std::time_t seconds) {
    // Unlike localtime, localtime_r need not notice that the zone has changed.
    tzset();
    std::tm fields{};
    return localtime_r(&seconds, &fields) != nullptr ? fields : std::tm{};
}

std::time_t LumUtcFieldsAsLocal(std::time_t seconds) {
    std::tm fields = GmTime(seconds);
    return std::mktime(&fields);
}

int32_t LumGmtOffset(std::time_t seconds) {
    if (seconds < std::numeric_limits<int32_t>::min() || seconds > std::numeric_limits<int32_t>::max()) {
        return ComputeGmtOffset(seconds);
    }
    const uint64_t key =
        (uint64_t{static_cast<uint32_t>(seconds)} << kSecondShift) | (ZoneDigest() << kZoneShift) | kMark;
    const uint64_t last = lastAnswer.load(std::memory_order_relaxed);
    if ((last & kKeyMask) == key) {
        return static_cast<int32_t>((last >> kOffsetShift) & ((1U << kOffsetBits) - 1)) - kOffsetLimit;
    }
    const int32_t offset = ComputeGmtOffset(seconds);
    if (offset >= -kOffsetLimit && offset < kOffsetLimit) {
        const auto packed = static_cast<uint32_t>(offset + kOffsetLimit);
        lastAnswer.store(key | (uint64_t{packed} << kOffsetShift), std::memory_order_relaxed);
    }
    return offset;
}
