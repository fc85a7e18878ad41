#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

/// Reading what the agent answers. An answer holds columns: each name with its values at positions 0, 1, 2,
/// ..., null where a position holds none. None of these routines trusts it: what is absent or of another kind
/// reads as null or as empty.

/// The member of that name; a null value where `json` is not an object or has no such member.
[[nodiscard]] const nlohmann::ordered_json& MemberOf(const nlohmann::ordered_json& json,
                                                     std::string_view name);

/// The value at `position` of a list; anything else counts as a list of that one value.
[[nodiscard]] const nlohmann::ordered_json& ValueAt(const nlohmann::ordered_json& column,
                                                    std::size_t position);

/// The text; empty for anything else.
[[nodiscard]] std::string TextOf(const nlohmann::ordered_json& json);

/// Length of the longest list among the members of an object.
[[nodiscard]] std::size_t RowCount(const nlohmann::ordered_json& columns);

/// The lists among the members turned into rows: a list of objects with the same names, in which an empty
/// position is left out. Members that are not lists are left out, too.
[[nodiscard]] nlohmann::ordered_json RowsOf(const nlohmann::ordered_json& columns);

/// What a table shows for a value of a parameter type: text as it is, a timestamp as local time, a bool as
/// "true" or "false", an absent value as empty text.
[[nodiscard]] std::string CellOf(const nlohmann::ordered_json& value, std::string_view type);
