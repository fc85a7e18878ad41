#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "client/events/EventTally.h"

/// What a report shows, free of how it looks.

/// The values of one parameter, the most frequent first.
struct ValueCounts {
    std::string parameter;
    std::vector<std::pair<std::string, uint64_t>> top;
    uint64_t others = 0;  ///< events of the values that are not among them
};

struct ModelReport {
    ModelReport(std::string modelName, std::vector<int64_t> days)
        : name(std::move(modelName)), byDevice(std::move(days)) {}

    std::string name;
    std::string note;
    bool enabled = true;
    int64_t stored = 0;   ///< all events, whatever their time
    EventTally byDevice;  ///< events of the span by day and device
    std::vector<ValueCounts> values;
};

/// A time in which no event of any model came.
struct RecordGap {
    int64_t from = 0;
    int64_t to = 0;
};

struct ReportData {
    std::string host;
    int64_t made = 0;
    int64_t since = 0;
    int64_t until = 0;
    std::vector<int64_t> days;
    std::vector<int64_t> hours;
    std::vector<uint64_t> eventsByHour;  ///< of all models, as long as `hours`
    std::vector<ModelReport> models;     ///< the one with the most events first
    std::optional<int64_t> alertsSent;
    std::optional<int64_t> alertsHeldBack;
    std::optional<uint64_t> databaseBytes;
    std::optional<uint64_t> outboxBytes;
    std::optional<int64_t> outboxFiles;

    [[nodiscard]] uint64_t CountEvents() const;
    /// Events by device over all models, the most first.
    [[nodiscard]] std::vector<std::pair<std::string, uint64_t>> CountByDevice() const;
    /// Hours without any event, in runs of at least two, the longest first.
    [[nodiscard]] std::vector<RecordGap> FindGaps() const;
};
