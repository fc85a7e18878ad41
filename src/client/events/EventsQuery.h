#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Which events a listing shows. Without a sort column the newest come last and a page counts from the
/// newest.
struct EventsQuery {
    std::string model;
    std::optional<int32_t> since;
    std::optional<int32_t> until;
    std::optional<int32_t> device;
    std::optional<int32_t> group;
    std::vector<std::string> filters;  ///< PARAM=VALUE
    std::optional<uint32_t> pageSize;
    uint32_t page = 1;
    std::optional<std::string> sort;
    bool descending = false;
    bool all = false;
    bool follow = false;

    /// So many events are shown where neither a page nor a time nor all of them are asked for.
    static constexpr uint32_t kDefaultPageSize = 100;
    /// Nothing where there is no limit.
    [[nodiscard]] std::optional<uint32_t> GetLimit() const;
};
