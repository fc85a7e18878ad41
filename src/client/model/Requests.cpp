#include "client/model/Requests.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <nlohmann/json.hpp>

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

/// The type of a member of "EventParams"; false where the model has no such parameter.
bool TypeOfMember(const ModelDefinition& model, const std::string& name, std::string_view& type,
                  std::string& error) {
    if (const ModelParameter* parameter = model.Find(name); parameter != nullptr) {
        type = parameter->type;
        return true;
    }
    if (name == keys::kEventDeviceId || name == keys::kEventGroupId) {
        type = kTypeInteger;
        return true;
    }
    std::vector<std::string> known;
    for (const ModelParameter& parameter : model.parameters) {
        known.push_back(parameter.name);
    }
    error = "model '" + model.name + "' has no parameter '" + name + "'" + DidYouMean(name, known);
    return false;
}

std::string ForParameter(const std::string& name, const std::string& reason) {
    return "parameter '" + name + "': " + reason;
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

bool SplitAssignment(std::string_view text, std::pair<std::string, std::string>& assignment) {
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos || equals == 0) {
        return false;
    }
    assignment.first = text.substr(0, equals);
    assignment.second = text.substr(equals + 1);
    return true;
}

bool CreateEventParams(const ModelDefinition& model, std::optional<int32_t> device,
                       std::optional<int32_t> group, const std::vector<std::string>& assignments,
                       Json& eventParams, std::string& error) {
    Json params = Json::object();
    if (device) {
        params[keys::kEventDeviceId] = *device;
    }
    if (group) {
        params[keys::kEventGroupId] = *group;
    }
    for (const std::string& text : assignments) {
        std::pair<std::string, std::string> assignment;
        if (!SplitAssignment(text, assignment)) {
            error = "'" + text + "' is not of the form PARAM=VALUE";
            return false;
        }
        const std::string& name = assignment.first;
        std::string_view type;
        if (!TypeOfMember(model, name, type, error)) {
            return false;
        }
        if (params.contains(name)) {
            error = ForParameter(name, "it is given twice");
            return false;
        }
        std::string reason;
        if (!ValueFromText(type, assignment.second, params[name], reason)) {
            error = ForParameter(name, reason);
            return false;
        }
    }
    eventParams = std::move(params);
    return true;
}

bool ImportEventParams(const ModelDefinition& model, std::string_view line, Json& eventParams,
                       std::string& error) {
    const Json given = Json::parse(line, nullptr, false);
    if (!given.is_object()) {
        error = given.is_discarded() ? "it is not JSON" : "it is not a JSON object";
        return false;
    }
    Json params = Json::object();
    for (const auto& [name, value] : given.items()) {
        std::string_view type;
        if (name == keys::kEventDate) {
            continue;
        }
        if (!TypeOfMember(model, name, type, error)) {
            return false;
        }
        std::string reason;
        if (!value.is_null() && !ValueFromJson(type, value, params[name], reason)) {
            error = ForParameter(name, reason);
            return false;
        }
    }
    eventParams = std::move(params);
    return true;
}

bool SettingsRequest(const std::vector<std::string>& assignments, Json& request, std::string& error) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 3> kSettings{
        {{keys::kEnableUpload, kTypeBoolean},
         {keys::kEnableAggregation, kTypeBoolean},
         {keys::kAlertMinimumGap, kTypeInteger}}};
    Json values = Json::object();
    for (const std::string& text : assignments) {
        std::pair<std::string, std::string> assignment;
        if (!SplitAssignment(text, assignment)) {
            error = "'" + text + "' is not of the form KEY=VALUE";
            return false;
        }
        const auto* const setting = std::find_if(kSettings.begin(), kSettings.end(), [&](const auto& known) {
            return known.first == assignment.first;
        });
        if (setting == kSettings.end()) {
            error = "there is no setting '" + assignment.first +
                    "' (EnableUpload, EnableAggregation, AlertMinimumGap)";
            return false;
        }
        std::string reason;
        if (!ValueFromText(setting->second, assignment.second, values[assignment.first], reason)) {
            error = "setting '" + assignment.first + "': " + reason;
            return false;
        }
    }
    request = WithValues(std::move(values));
    return true;
}
