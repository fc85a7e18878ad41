#include "alerts/AlertCeiling.h"

#include <algorithm>
#include <utility>

#include "host/core/LumAgent.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"
#include "store/DatabaseScope.h"

void AlertCeiling_t::SetPerMinute(uint32_t perMinute) {
    const std::lock_guard<std::mutex> lock(mutex_);
    perMinute_ = perMinute;
}

uint32_t AlertCeiling_t::GetPerMinute() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return perMinute_;
}

void AlertCeiling_t::BeginMinute(std::time_t now) {
    if (now / 60 != minute_) {
        minute_ = now / 60;
        passed_ = 0;
        for (Count* const count : {&heldBack_, &lost_}) {
            count->untold += std::exchange(count->now, 0);
        }
    }
}

bool AlertCeiling_t::IsReached(std::time_t now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    BeginMinute(now);
    return perMinute_ != 0 && passed_ >= perMinute_;
}

void AlertCeiling_t::NoteLost(std::time_t now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    BeginMinute(now);
    ++lost_.now;
}

bool AlertCeiling_t::Admit(std::time_t now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    BeginMinute(now);
    if (perMinute_ != 0 && passed_ >= perMinute_) {
        ++heldBack_.now;
        return false;
    }
    ++passed_;
    return true;
}

uint32_t AlertCeiling_t::TakeHeldBack(std::time_t now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    BeginMinute(now);
    return std::exchange(heldBack_.untold, 0);
}

uint32_t AlertCeiling_t::TakeLost(std::time_t now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    BeginMinute(now);
    return std::exchange(lost_.untold, 0);
}

void LoadAlertCeiling() {
    int32_t perMinute = AlertCeiling_t::kDefaultPerMinute;
    LumAgentIni()->GetEntryValue("Agent", "AlertsPerMinute", perMinute, AlertCeiling_t::kDefaultPerMinute);
    AlertCeiling.SetPerMinute(static_cast<uint32_t>(std::max(perMinute, 0)));
}

void TellHeldBackAlerts() {
    constexpr LumRoutine kRoutine(ModuleDebug, "TellHeldBackAlerts");
    const uint32_t heldBack = AlertCeiling.TakeHeldBack(std::time(nullptr));
    if (heldBack > 0) {
        kRoutine.Error("%u alerts were held back, no more than %u a minute leave", heldBack,
                       AlertCeiling.GetPerMinute());
    }
    const uint32_t lost = AlertCeiling.TakeLost(std::time(nullptr));
    if (lost > 0) {
        // A warning: an error would be one more alert that has no place.
        kRoutine.Warning("%u alerts are lost: their files could not be written, or %u wait in %S already",
                         lost, kMaxWaitingAlerts, GetTempDirectory());
    }
}
