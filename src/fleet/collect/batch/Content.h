#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fleet/collect/batch/CopyRow.h"
#include "host/container/LumContainer.h"

/// What a batch holds, read out of its container file and turned into rows. Nothing here speaks to the
/// database.

/// A parameter of a model: its name, and its type's token ("_STRING_").
struct ParameterType {
    std::string name;
    std::string type;

    [[nodiscard]] bool operator==(const ParameterType& other) const = default;
};

/// The rows of one file.
struct ContentRows {
    CopyRows rows;
    std::vector<std::size_t> batchFields;  ///< where in `rows` each row's number of the batch stands
};

/// The events of one upload file: rows of the fixed columns, then one a parameter.
struct EventContent : ContentRows {
    std::string model;
    std::string checksum;
    std::vector<ParameterType> parameters;  ///< one column each, in this order
    std::vector<int32_t> dates;             ///< of each event, seconds since 1970
};

/// An alert: one row.
struct AlertContent : ContentRows {};

/// A file holds at most this many events, and a model has at most so many parameters.
inline constexpr uint32_t kMaxEvents = 100;
inline constexpr uint32_t kMaxParameters = 1000;
inline constexpr std::size_t kMaxModelNameBytes = 255;
inline constexpr std::size_t kMaxParameterNameBytes = 255;

/// The columns that `rows` of an EventContent begin with, as a COPY statement lists them.
[[nodiscard]] std::string_view FixedEventColumns();
/// The columns of an AlertContent.
[[nodiscard]] std::string_view AlertColumns();

/// Each reads a container into rows of `device`. False, with what is wrong in `reason`, where it is not what
/// an upload file or an alert file holds.
[[nodiscard]] bool ReadEvents(const LumContainer& container, std::string_view device, EventContent& content,
                              std::string& reason);
[[nodiscard]] bool ReadAlert(const LumContainer& container, std::string_view device, AlertContent& content,
                             std::string& reason);

/// The SQL type of the column for a parameter of this token; empty for a token that there is none of.
[[nodiscard]] std::string_view ColumnType(std::string_view token);
