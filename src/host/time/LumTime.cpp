#include "host/time/LumTime.h"

#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace {

/// An answer of LumGmtOffset, and what was asked.
struct OffsetAnswer {
    std::time_t seconds;
    std::string zone;
    int32_t offset;
};

/// The process's TZ setting: an answer of another zone is not taken for this one's.
std::string_view ZoneSetting() {
    const char* const zone = std::getenv("TZ");
    return zone != nullptr ? zone : "";
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
    thread_local std::optional<OffsetAnswer> last;
    const std::string_view zone = ZoneSetting();
    if (!last.has_value() || last->seconds != seconds || last->zone != zone) {
        last = OffsetAnswer{seconds, std::string(zone), ComputeGmtOffset(seconds)};
    }
    return last->offset;
}
