#include "client/connection/Answer.h"

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "client/model/ModelDefinition.h"
#include "client/text/TimeText.h"

namespace {

const nlohmann::ordered_json& Nothing() {
    static const nlohmann::ordered_json nothing;
    return nothing;
}

}  // namespace

const nlohmann::ordered_json& MemberOf(const nlohmann::ordered_json& json, std::string_view name) {
    if (!json.is_object()) {
        return Nothing();
    }
    const auto found = json.find(std::string(name));
    return found == json.end() ? Nothing() : *found;
}

const nlohmann::ordered_json& ValueAt(const nlohmann::ordered_json& column, std::size_t position) {
    if (column.is_array()) {
        return position < column.size() ? column[position] : Nothing();
    }
    return position == 0 ? column : Nothing();
}

std::string TextOf(const nlohmann::ordered_json& json) {
    return json.is_string() ? json.get<std::string>() : std::string();
}

std::size_t RowCount(const nlohmann::ordered_json& columns) {
    std::size_t count = 0;
    if (columns.is_object()) {
        for (const auto& column : columns) {
            count = std::max(count, column.is_array() ? column.size() : 0);
        }
    }
    return count;
}

nlohmann::ordered_json RowsOf(const nlohmann::ordered_json& columns) {
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < RowCount(columns); ++i) {
        nlohmann::ordered_json row = nlohmann::ordered_json::object();
        for (const auto& [name, column] : columns.items()) {
            const nlohmann::ordered_json& value = ValueAt(column, i);
            if (column.is_array() && !value.is_null()) {
                row[name] = value;
            }
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

std::string CellOf(const nlohmann::ordered_json& value, std::string_view type) {
    if (value.is_null()) {
        return {};
    }
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (type == kTypeTimestamp && value.is_number_integer()) {
        return FormatLocalTime(value.get<int64_t>());
    }
    return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}
