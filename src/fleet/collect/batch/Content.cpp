#include "fleet/collect/batch/Content.h"

#include <array>
#include <functional>
#include <set>

#include "contract/ContainerKeys.h"
#include "contract/ParamTypeTokens.h"

namespace {

constexpr int16_t kFixedColumns = 7;
constexpr int16_t kAlertColumns = 8;
/// In a row: the number of fields, then the time with its length, then the length of the batch.
constexpr std::size_t kBatchOffset = sizeof(int16_t) + sizeof(int32_t) + sizeof(int64_t) + sizeof(int32_t);

/// Appends the value at a position, and says whether there was one of the right kind.
using AppendValue = bool (*)(const LumContainer& container, const LumString& name, uint32_t position,
                             CopyRows& rows);

bool AppendText(const LumContainer& container, const LumString& name, uint32_t position, CopyRows& rows) {
    const LumString* const text = container.FindString(name, position);
    if (text != nullptr) {
        rows.Text(text->View());
    }
    return text != nullptr;
}

/// The same for a kind of value that `Get` reads and `Put` appends.
template <class Value, bool (LumContainer::*Get)(const LumString&, Value&, uint32_t) const, auto Put>
bool Append(const LumContainer& container, const LumString& name, uint32_t position, CopyRows& rows) {
    Value value{};
    const bool found = (container.*Get)(name, value, position);
    if (found) {
        (rows.*Put)(value);
    }
    return found;
}

struct TypeOfColumn {
    std::string_view token;
    std::string_view column;
    AppendValue append;
};

constexpr std::array<TypeOfColumn, 6> kTypes{{
    {kTypeString, "text", AppendText},
    {kTypeEnum, "text", AppendText},
    {kTypeInteger, "integer", Append<int32_t, &LumContainer::GetInt32, &CopyRows::Int32>},
    {kTypeTimestamp, "timestamptz", Append<int32_t, &LumContainer::GetInt32, &CopyRows::Timestamp>},
    {kTypeDouble, "double precision", Append<double, &LumContainer::GetDouble, &CopyRows::Double>},
    {kTypeBoolean, "boolean", Append<bool, &LumContainer::GetBool, &CopyRows::Bool>},
}};

const TypeOfColumn* FindType(std::string_view token) {
    for (const TypeOfColumn& type : kTypes) {
        if (type.token == token) {
            return &type;
        }
    }
    return nullptr;
}

LumString Name(std::string_view text) {
    return LumString(text);
}

std::string Shown(std::string_view name) {
    constexpr std::size_t longest = 60;
    return "'" + StorableText(name.substr(0, longest)) + (name.size() > longest ? "...'" : "'");
}

bool IsName(std::string_view name, std::size_t longest) {
    return !name.empty() && name.size() <= longest && name.find('\0') == std::string_view::npos &&
           StorableText(name) == name;
}

bool ReadParameters(const LumContainer& model, EventContent& content, std::string& reason) {
    LumContainer variables;
    static_cast<void>(model.GetContainer(keys::kModelVars, variables));  // none: a model without parameters
    const uint32_t count = variables.CountPositions(keys::kModelVarName);
    if (count > kMaxParameters) {
        reason = "its model has " + std::to_string(count) + " parameters, more than " +
                 std::to_string(kMaxParameters);
        return false;
    }
    std::set<std::string> seen;
    for (uint32_t position = 0; position < count; ++position) {
        LumString name;
        LumString type;
        if (!variables.GetString(keys::kModelVarName, name, position) ||
            !IsName(name.View(), kMaxParameterNameBytes)) {
            reason = "parameter " + std::to_string(position) + " of its model has no name that can be used";
            return false;
        }
        if (!seen.emplace(name.View()).second) {
            reason = "its model has the parameter " + Shown(name.View()) + " twice";
            return false;
        }
        if (!variables.GetString(keys::kModelVarType, type, position)) {
            continue;  // values of such a parameter are not uploaded
        }
        if (FindType(type.View()) == nullptr) {
            reason = "its parameter " + Shown(name.View()) + " is of the unknown type " + Shown(type.View());
            return false;
        }
        content.parameters.push_back({std::string(name.View()), std::string(type.View())});
    }
    return true;
}

bool ReadModel(const LumContainer& container, EventContent& content, std::string& reason) {
    LumContainer model;
    LumString name;
    LumString checksum;
    if (!container.GetContainer(keys::kModelDef, model) || !model.GetString(keys::kModelName, name)) {
        reason = "it does not name its model";
        return false;
    }
    if (!IsName(name.View(), kMaxModelNameBytes)) {
        reason = "its model's name " + Shown(name.View()) + " cannot be used";
        return false;
    }
    static_cast<void>(model.GetString(keys::kModelChecksum, checksum));  // for people only; may be missing
    content.model = name.View();
    content.checksum = StorableText(checksum.View().substr(0, kMaxModelNameBytes));
    return ReadParameters(model, content, reason);
}

/// Every value of the file must have a place among the columns.
bool CheckNames(const LumContainer& container, const EventContent& content, uint32_t events,
                std::string& reason) {
    std::set<std::string_view> known{keys::kModelDef, keys::kEventDate, keys::kEventGmtOffset,
                                     keys::kEventDeviceId, keys::kEventGroupId};
    for (const ParameterType& parameter : content.parameters) {
        known.insert(parameter.name);
    }
    LumString name;
    for (uint32_t index = 0; index < container.CountNames(); ++index) {
        static_cast<void>(container.GetNameAt(index, name));  // there are as many
        if (known.count(name.View()) == 0) {
            reason = "it holds " + Shown(name.View()) + ", which its model does not have";
            return false;
        }
        if (name != keys::kModelDef && container.CountPositions(name) > events) {
            reason = "it holds more values of " + Shown(name.View()) + " than events";
            return false;
        }
    }
    return true;
}

int32_t IntegerAt(const LumContainer& container, const LumString& name, uint32_t position) {
    int32_t value = 0;
    static_cast<void>(container.GetInt32(name, value, position));  // left out where all are 0
    return value;
}

/// Appends all rows; what was found of each parameter is added to `found`.
bool AppendEvents(const LumContainer& container, std::string_view device, uint32_t events,
                  EventContent& content, std::vector<uint32_t>& found, std::string& reason) {
    std::vector<std::pair<LumString, const TypeOfColumn*>> columns;
    for (const ParameterType& parameter : content.parameters) {
        columns.emplace_back(Name(parameter.name), FindType(parameter.type));
    }
    const LumString dateName(keys::kEventDate);
    const LumString offsetName(keys::kEventGmtOffset);
    const LumString deviceName(keys::kEventDeviceId);
    const LumString groupName(keys::kEventGroupId);
    CopyRows& rows = content.rows;
    for (uint32_t event = 0; event < events; ++event) {
        int32_t date = 0;
        if (!container.GetInt32(dateName, date, event)) {
            reason = "its event " + std::to_string(event) + " has no date";
            return false;
        }
        content.dates.push_back(date);
        content.batchFields.push_back(rows.GetBytes().size() + kBatchOffset);
        rows.BeginRow(static_cast<int16_t>(kFixedColumns + static_cast<int16_t>(columns.size())));
        rows.Timestamp(date);
        rows.Int64(0);
        rows.Int32(static_cast<int32_t>(event));
        rows.Text(device);
        rows.Int32(IntegerAt(container, offsetName, event));
        rows.Int32(IntegerAt(container, deviceName, event));
        rows.Int32(IntegerAt(container, groupName, event));
        for (std::size_t column = 0; column < columns.size(); ++column) {
            if (columns[column].second->append(container, columns[column].first, event, rows)) {
                ++found[column];
            } else {
                rows.Null();
            }
        }
    }
    return true;
}

/// The null character has no place in the database's JSON.
std::string StorableJson(std::string json) {
    constexpr std::string_view null = "\\u0000";
    for (std::size_t place = 0; place < json.size(); ++place) {
        if (json[place] != '\\') {
            continue;
        }
        if (json.compare(place, null.size(), null) == 0) {
            json.replace(place, null.size(), "\\ufffd");
        }
        ++place;  // the escaped character is not the start of another escape
    }
    return json;
}

}  // namespace

std::string_view FixedEventColumns() {
    return "event_time, batch, position, device, event_gmt_offset, event_device_id, event_group_id";
}

std::string_view AlertColumns() {
    return "event_time, batch, device, event_gmt_offset, description, status, type, content";
}

std::string_view ColumnType(std::string_view token) {
    const TypeOfColumn* const type = FindType(token);
    return type != nullptr ? type->column : std::string_view();
}

bool ReadEvents(const LumContainer& container, std::string_view device, EventContent& content,
                std::string& reason) {
    if (!ReadModel(container, content, reason)) {
        return false;
    }
    const uint32_t events = container.CountPositions(keys::kEventDate);
    if (events == 0 || events > kMaxEvents) {
        reason = "it holds " + std::to_string(events) + " events, not 1 to " + std::to_string(kMaxEvents);
        return false;
    }
    std::vector<uint32_t> found(content.parameters.size());
    if (!CheckNames(container, content, events, reason) ||
        !AppendEvents(container, device, events, content, found, reason)) {
        return false;
    }
    for (std::size_t column = 0; column < found.size(); ++column) {
        const ParameterType& parameter = content.parameters[column];
        if (found[column] != container.CountValues(Name(parameter.name))) {
            reason = "a value of " + Shown(parameter.name) + " is not of the type " + parameter.type;
            return false;
        }
    }
    return true;
}

bool ReadAlert(const LumContainer& container, std::string_view device, AlertContent& content,
               std::string& reason) {
    int32_t date = 0;
    if (!container.GetInt32(keys::kEventDate, date)) {
        reason = "it has no date";
        return false;
    }
    CopyRows& rows = content.rows;
    content.batchFields.push_back(kBatchOffset);
    rows.BeginRow(kAlertColumns);
    rows.Timestamp(date);
    rows.Int64(0);
    rows.Text(device);
    rows.Int32(IntegerAt(container, keys::kEventGmtOffset, kLumSingleValue));
    for (const char* const name : {keys::kAlertDescription, keys::kAlertStatus, keys::kAlertType}) {
        if (!AppendText(container, name, kLumSingleValue, rows)) {
            rows.Null();
        }
    }
    rows.Json(StorableJson(container.ToJson()));
    return true;
}
