#include "client/events/EventTally.h"

#include <algorithm>
#include <numeric>

#include "client/text/TimeText.h"

namespace {

constexpr int64_t kSecondsPerHour = 3600;

/// More than any day has, less than two.
constexpr int64_t kIntoNextDay = 30 * kSecondsPerHour;

void AddTo(std::vector<uint64_t>& sum, const std::vector<uint64_t>& counts) {
    std::transform(counts.begin(), counts.end(), sum.begin(), sum.begin(), std::plus<>());
}

uint64_t SumOf(const std::vector<uint64_t>& counts) {
    return std::accumulate(counts.begin(), counts.end(), uint64_t{0});
}

}  // namespace

std::vector<int64_t> PeriodStarts(TallyPeriod period, int64_t from, int64_t to) {
    std::vector<int64_t> starts;
    int64_t start = period == TallyPeriod::kHour ? StartOfLocalHour(from) : StartOfLocalDay(from);
    do {
        starts.push_back(start);
        start =
            period == TallyPeriod::kHour ? start + kSecondsPerHour : StartOfLocalDay(start + kIntoNextDay);
    } while (start <= to);
    return starts;
}

void EventTally::Add(int64_t date, std::string_view value) {
    auto found = values_.find(value);
    if (found == values_.end() && values_.size() < kMaxValues) {
        found = values_.emplace(std::string(value), std::vector<uint64_t>(starts_.size())).first;
    }
    others_.resize(starts_.size());
    ++(found != values_.end() ? found->second : others_)[PeriodOf(date)];
    ++total_;
}

std::size_t EventTally::PeriodOf(int64_t date) {
    const bool same = date >= starts_[last_] && (last_ + 1 == starts_.size() || date < starts_[last_ + 1]);
    if (!same) {
        const auto after = std::upper_bound(starts_.begin(), starts_.end(), date);
        last_ = after == starts_.begin() ? 0 : static_cast<std::size_t>(after - starts_.begin()) - 1;
    }
    return last_;
}

std::vector<uint64_t> EventTally::GetCounts() const {
    std::vector<uint64_t> sum(starts_.size());
    AddTo(sum, others_);
    for (const auto& [value, counts] : values_) {
        AddTo(sum, counts);
    }
    return sum;
}

std::vector<EventTally::Series> EventTally::GetSeries(std::size_t most) const {
    std::vector<Series> series;
    for (const auto& [value, counts] : values_) {
        series.push_back({value, SumOf(counts), counts});
    }
    std::stable_sort(series.begin(), series.end(),
                     [](const Series& a, const Series& b) { return a.total > b.total; });
    Series others{std::string(kOtherValues), 0, std::vector<uint64_t>(starts_.size())};
    AddTo(others.counts, others_);
    for (std::size_t i = most; i < series.size(); ++i) {
        AddTo(others.counts, series[i].counts);
    }
    series.resize(std::min(series.size(), most));
    others.total = SumOf(others.counts);
    if (others.total > 0) {
        series.push_back(std::move(others));
    }
    return series;
}
