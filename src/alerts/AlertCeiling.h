#pragma once

#include <cstdint>
#include <ctime>
#include <mutex>

/// How many alerts may leave in a minute, and how many had to stay. May be used from any thread.
class AlertCeiling_t {
public:
    static constexpr int32_t kDefaultPerMinute = 600;

    /// 0: as many as come.
    void SetPerMinute(uint32_t perMinute);
    [[nodiscard]] uint32_t GetPerMinute() const;

    /// True where one more alert may leave at `now`, seconds since 1970; one that may not is counted.
    [[nodiscard]] bool Admit(std::time_t now);

    /// How many were held back in the minutes before that of `now`, and not told yet.
    [[nodiscard]] uint32_t TakeHeldBack(std::time_t now);

private:
    void BeginMinute(std::time_t now);

    // A plain mutex: nothing else is locked or logged while it is held.
    mutable std::mutex mutex_;
    uint32_t perMinute_ = kDefaultPerMinute;
    std::time_t minute_ = 0;
    uint32_t passed_ = 0;
    uint32_t heldBack_ = 0;  // in this minute
    uint32_t untold_ = 0;    // in the minutes before
};

extern AlertCeiling_t AlertCeiling;

/// Reads `[Agent] AlertsPerMinute` of the agent's settings.
void LoadAlertCeiling();

/// Says in one error line, which becomes one alert, how many alerts were held back in the last minute. To be
/// called every few seconds.
void TellHeldBackAlerts();
