#include "client/model/Requests.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <nlohmann/json.hpp>
#include <utility>

#include "client/ClientError.h"
#include "client/model/ParameterValue.h"
#include "client/text/Suggestion.h"
#include "contract/ContainerKeys.h"

namespace {

using Json = nlohmann::ordered_json;

Json WithValues(Json values) {
    Json request = Json::object();
    request[keys::kValues] = std::move(values);
    return request;
}

/// The type of a member of "EventParams".
std::string_view TypeOfMember(const ModelDefinition& model, const std::string& name) {
    if (const ModelParameter* parameter = model.Find(name); parameter != nullptr) {
        return parameter->type;
    }
    if (name == keys::kEventDeviceId || name == keys::kEventGroupId) {
        return kTypeInteger;
    }
    std::vector<std::string> known;
    for (const ModelParameter& parameter : model.parameters) {
        known.push_back(parameter.name);
    }
    throw ClientError("model '" + model.name + "' has no parameter '" + name + "'" + DidYouMean(name, known));
}

/// What `read` gives; what it throws tells where the value stands.
Json ValueOf(std::string_view kind, const std::string& name, const std::function<Json()>& read) {
    try {
        return read();
    } catch (const ClientError& error) {
        throw ClientError(std::string(kind) + " '" + name + "': " + error.what());
    }
}

/// Splits at the first equals sign.
std::pair<std::string, std::string> SplitAssignment(const std::string& text, std::string_view form) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw ClientError("'" + text + "' is not of the form " + std::string(form));
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

}  // namespace

Json ModelRequest(const std::string& model) {
    return WithValues({{keys::kModelName, model}});
}

Json DeleteModelsRequest(const std::vector<std::string>& models) {
    Json values = Json::object();
    values[keys::kModelName] = models;
    return WithValues(std::move(values));
}

Json EventsRequest(const EventsRequestFields& fields) {
    Json values = Json::object();
    values[keys::kModelName] = fields.model;
    if (fields.since) {
        values[keys::kStartDate] = *fields.since;
    } else if (fields.until) {
        values[keys::kEndDate] = *fields.until;
    }
    values[keys::kPageSize] = fields.rows;
    if (fields.skip > 0) {
        values[keys::kPageNumber] = uint64_t{fields.skip} + 1;  // the action skips a row less than this
    }
    values[keys::kSortColumn] = fields.sort.value_or(keys::kEventDate);
    values[keys::kSortDirection] = fields.descending ? "Desc" : "Asc";
    return WithValues(std::move(values));
}

Json PurgeRequest(const std::string& model, std::optional<int32_t> before) {
    Json request = ModelRequest(model);
    if (before) {
        request[keys::kValues][keys::kEndDate] = *before;
    }
    return request;
}

Json AlertRequest(const std::string& text, const std::optional<std::string>& status) {
    Json request = Json::object();
    request[keys::kAlertDescription] = text;
    request[keys::kValues] = Json::object();
    if (status) {
        request[keys::kValues][keys::kAlertStatus] = *status;
    }
    return request;
}

Json CreateRequest(const std::string& model, Json eventParams) {
    Json request = ModelRequest(model);
    request[keys::kValues][keys::kEventParams] = std::move(eventParams);
    return request;
}

Json CreateEventParams(const ModelDefinition& model, std::optional<int32_t> device,
                       std::optional<int32_t> group, const std::vector<std::string>& assignments) {
    Json params = Json::object();
    if (device) {
        params[keys::kEventDeviceId] = *device;
    }
    if (group) {
        params[keys::kEventGroupId] = *group;
    }
    for (const std::string& text : assignments) {
        const auto [name, value] = SplitAssignment(text, "PARAM=VALUE");
        const std::string_view type = TypeOfMember(model, name);
        if (params.contains(name)) {
            throw ClientError("parameter '" + name + "': it is given twice");
        }
        params[name] = ValueOf("parameter", name, [&, &value = value] { return ValueFromText(type, value); });
    }
    return params;
}

Json ImportEventParams(const ModelDefinition& model, std::string_view line) {
    const Json given = Json::parse(line, nullptr, false);
    if (!given.is_object()) {
        throw ClientError(given.is_discarded() ? "it is not JSON" : "it is not a JSON object");
    }
    Json params = Json::object();
    for (const auto& [name, value] : given.items()) {
        if (name == keys::kEventDate) {
            continue;
        }
        const std::string_view type = TypeOfMember(model, name);
        if (!value.is_null()) {
            params[name] =
                ValueOf("parameter", name, [&, &value = value] { return ValueFromJson(type, value); });
        }
    }
    return params;
}

Json SettingsRequest(const std::vector<std::string>& assignments) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 3> kSettings{
        {{keys::kEnableUpload, kTypeBoolean},
         {keys::kEnableAggregation, kTypeBoolean},
         {keys::kAlertMinimumGap, kTypeInteger}}};
    Json values = Json::object();
    for (const std::string& text : assignments) {
        const auto [name, value] = SplitAssignment(text, "KEY=VALUE");
        const auto* const setting =
            std::find_if(kSettings.begin(), kSettings.end(),
                         [&name = name](const auto& known) { return known.first == name; });
        if (setting == kSettings.end()) {
            throw ClientError("there is no setting '" + name +
                              "' (EnableUpload, EnableAggregation, AlertMinimumGap)");
        }
        values[name] =
            ValueOf("setting", name, [&, &value = value] { return ValueFromText(setting->second, value); });
    }
    return WithValues(std::move(values));
}
