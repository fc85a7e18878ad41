#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/// The local periods by which events are counted.
enum class TallyPeriod : uint8_t { kHour, kDay };

/// The beginnings of the local periods from the one of `from` to the one of `to`, both in seconds since 1970
/// UTC. A change of the clock makes a day of 23 or 25 hours, and of the hours one that is there twice.
[[nodiscard]] std::vector<int64_t> PeriodStarts(TallyPeriod period, int64_t from, int64_t to);

/// Counts events by local period and by a value. Of values no more than kMaxValues are told apart; the events
/// of further ones are counted together.
class EventTally {
public:
    static constexpr std::size_t kMaxValues = 10000;

    /// A value with its events in each period.
    struct Series {
        std::string value;
        uint64_t total = 0;
        std::vector<uint64_t> counts;  ///< as long as the periods
    };

    explicit EventTally(std::vector<int64_t> starts) : starts_(std::move(starts)) {}

    /// Events before the first period count as of the first, ones after the last as of the last.
    void Add(int64_t date, std::string_view value);

    [[nodiscard]] const std::vector<int64_t>& GetStarts() const { return starts_; }
    [[nodiscard]] uint64_t GetTotal() const { return total_; }
    /// The events of each period.
    [[nodiscard]] std::vector<uint64_t> GetCounts() const;
    /// The values with the most events first, at most `most`; the rest together as "(others)".
    [[nodiscard]] std::vector<Series> GetSeries(std::size_t most) const;

private:
    [[nodiscard]] std::size_t PeriodOf(int64_t date);

    std::vector<int64_t> starts_;  ///< set once
    std::map<std::string, std::vector<uint64_t>, std::less<>> values_;
    std::vector<uint64_t> others_;
    uint64_t total_ = 0;
    std::size_t last_ = 0;  ///< events come in the order of their dates, so most are of the last period
};

/// What stands for the events of values that are not named.
inline constexpr std::string_view kOtherValues = "(others)";
