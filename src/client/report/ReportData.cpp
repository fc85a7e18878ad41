#include "client/report/ReportData.h"

#include <algorithm>

namespace {

constexpr int64_t kSecondsPerHour = 3600;
constexpr std::size_t kShortestGap = 2;  // hours

}  // namespace

uint64_t ReportData::CountEvents() const {
    uint64_t count = 0;
    for (const ModelReport& model : models) {
        count += model.byDevice.GetTotal();
    }
    return count;
}

std::vector<std::pair<std::string, uint64_t>> ReportData::CountByDevice() const {
    std::map<std::string, uint64_t> counts;
    for (const ModelReport& model : models) {
        for (const EventTally::Series& device : model.byDevice.GetSeries(EventTally::kMaxValues)) {
            counts[device.value] += device.total;
        }
    }
    std::vector<std::pair<std::string, uint64_t>> sorted(counts.begin(), counts.end());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    return sorted;
}

std::vector<RecordGap> ReportData::FindGaps() const {
    std::vector<RecordGap> gaps;
    for (std::size_t i = 0; i < hours.size();) {
        std::size_t end = i;
        while (end < hours.size() && eventsByHour[end] == 0) {
            ++end;
        }
        if (end - i >= kShortestGap) {
            gaps.push_back({hours[i], end < hours.size()
                                          ? hours[end]
                                          : std::min(hours.back() + kSecondsPerHour, until + 1)});
        }
        i = std::max(end, i + 1);
    }
    std::stable_sort(gaps.begin(), gaps.end(),
                     [](const RecordGap& a, const RecordGap& b) { return a.to - a.from > b.to - b.from; });
    return gaps;
}
