#pragma once

#include <cstdint>
#include <ctime>
#include <mutex>

/// How many files may wait in the temporary directory for a file store that does not take them. An alert
/// beyond that is lost, so that a storm of them does not take the room of the events.
inline constexpr uint32_t kMaxWaitingAlerts = 1000;

/// How many alerts may leave in a minute, and how many had to stay. May be used from any thread.
class AlertCeiling_t {
public:
    static constexpr int32_t kDefaultPerMinute = 600;

    /// 0: as many as come.
    void SetPerMinute(uint32_t perMinute);
    [[nodiscard]] uint32_t GetPerMinute() const;

    /// True where one more alert may leave at `now`, seconds since 1970; one that may not is counted.
    [[nodiscard]] bool Admit(std::time_t now);

    /// True where Admit would let nothing more leave at `now`.
    [[nodiscard]] bool IsReached(std::time_t now);
    /// An alert that had no place to wait in is lost.
    void NoteLost(std::time_t now);

    /// How many were held back in the minutes before that of `now`, and not told yet.
    [[nodiscard]] uint32_t TakeHeldBack(std::time_t now);
    /// The same for those that are lost.
    [[nodiscard]] uint32_t TakeLost(std::time_t now);

private:
    /// What is counted in this minute, and told after it.
    struct Count {
        uint32_t now = 0;
        uint32_t untold = 0;
    };

    void BeginMinute(std::time_t now);

    // A plain mutex: nothing else is locked or logged while it is held.
    mutable std::mutex mutex_;
    uint32_t perMinute_ = kDefaultPerMinute;
    std::time_t minute_ = 0;
    uint32_t passed_ = 0;
    Count heldBack_;
    Count lost_;
};

extern AlertCeiling_t AlertCeiling;

/// Reads `[Agent] AlertsPerMinute` of the agent's settings.
void LoadAlertCeiling();

/// Says in one error line, which becomes one alert, how many alerts were held back in the last minute, and in
/// one warning how many were lost. To be called every few seconds.
void TellHeldBackAlerts();
