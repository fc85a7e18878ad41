#pragma once

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

/// Puts the process into a time zone, and back at the end.
class TimeZone {
public:
    explicit TimeZone(const char* name) {
        const char* const before = std::getenv("TZ");
        if (before != nullptr) {
            before_ = before;
        }
        Set(name);
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;
    ~TimeZone() {
        if (before_.has_value()) {
            Set(before_->c_str());
        } else {
            unsetenv("TZ");
            tzset();
        }
    }

private:
    static void Set(const char* name) {
        setenv("TZ", name, 1);
        tzset();
    }

    std::optional<std::string> before_;
};

/// Seconds since 1970 of a moment in UTC.
inline std::time_t Utc(int year, unsigned month, unsigned day, int hour = 0, int minute = 0, int second = 0) {
    using namespace std::chrono;
    const sys_days date = std::chrono::year(year) / month / day;
    return (date + hours(hour) + minutes(minute) + seconds(second)).time_since_epoch() / seconds(1);
}
