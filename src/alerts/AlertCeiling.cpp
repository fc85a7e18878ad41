#include "alerts/AlertCeiling.h"

#include <algorithm>
#include <utility>

#include "host/core/LumAgent.h"
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
        untold_ += std::exchange(heldBack_, 0);
    }
}

bool AlertCeiling_t::Admit(std::time_t now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    BeginMinute(now);
    if (perMinute_ != 0 && passed_ >= perMinute_) {
        ++heldBack_;
        return false;
    }
    ++passed_;
    return true;
}

uint32_t AlertCeiling_t::TakeHeldBack(std::time_t now) {
    const std::lock_guard<std::mutex> lock(mutex_);
    BeginMinute(now);
    return std::exchange(untold_, 0);
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
}
