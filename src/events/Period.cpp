#include "events/Period.h"

#include <ctime>

LumSeconds PeriodStart(Policy policy, LumSeconds time) {
    if (policy < Policy::kMinutely || policy > Policy::kYearly) {
        return time;
    }
    std::tm fields = LocalTime(time);
    fields.tm_sec = 0;
    if (policy >= Policy::kHourly) {
        fields.tm_min = 0;
    }
    if (policy >= Policy::kDaily) {
        fields.tm_hour = 0;
    }
    if (policy == Policy::kWeekly) {
        fields.tm_mday -= fields.tm_wday;
    }
    if (policy >= Policy::kMonthly) {
        fields.tm_mday = 1;
    }
    if (policy == Policy::kYearly) {
        fields.tm_mon = 0;
    }
    return static_cast<LumSeconds>(std::mktime(&fields));
}
