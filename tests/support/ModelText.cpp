#include "support/ModelText.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace {

/// Tokens by the numbers of their codes.
constexpr std::array<std::string_view, 3> kTypes = {"", "_EVENTLOG_MODELTYPE_USER_",
                                                    "_EVENTLOG_MODELTYPE_AUTO_"};
constexpr std::array<std::string_view, 8> kPolicies = {"",         "_MINUTELY_", "_HOURLY_", "_DAILY_",
                                                       "_WEEKLY_", "_MONTHLY_",  "_YEARLY_", "_NEVER_"};
constexpr std::array<std::string_view, 7> kParamTypeTokens = {
    "", "_STRING_", "_INTEGER_", "_DOUBLE_", "_TIMESTAMP_", "_BOOLEAN_", "_ENUM_"};
constexpr std::array<std::string_view, 16> kOperations = {
    "",       "_SUM_",  "_COUNT_", "_MIN_", "_MAX_", "_AVG_",  "_DATETIME_", "_DATE_",
    "_TIME_", "_YEAR_", "_MONTH_", "",      "_DAY_", "_HOUR_", "_MINUTE_",   "_SECOND_"};

template <std::size_t N, class Code>
std::string_view TokenOf(const std::array<std::string_view, N>& tokens, Code code) {
    const auto number = static_cast<std::size_t>(code);
    return number < N ? tokens[number] : std::string_view("_UNHEARD_OF_");
}

/// One element, unless it would be empty.
std::string Element(std::string_view name, std::string_view content) {
    if (content.empty()) {
        return {};
    }
    std::string text("<");
    return text.append(name).append(">").append(content).append("</").append(name).append(">");
}

std::string ParamElement(const ParamText& param) {
    return Element("PARAM", Element("NAME", param.name) +
                                Element("TYPE", TokenOf(kParamTypeTokens, param.type)) +
                                Element("SOURCE", param.source) +
                                Element("OPERATION", TokenOf(kOperations, param.operation)) +
                                Element("DEFAULT", param.defaultText));
}

}  // namespace

std::string Definition(const ModelText& text) {
    std::string params;
    for (const ParamText& param : text.params) {
        params += ParamElement(param);
    }
    std::string groupedBy;
    for (const std::string& name : text.groupedBy) {
        groupedBy += Element("NAME", name);
    }
    return Element("MODEL", Element("NAME", text.name) + Element("CLASS", text.modelClass) +
                                Element("NOTE", text.note) + Element("SEVERITY", text.severity) +
                                Element("TYPE", TokenOf(kTypes, text.type)) + Element("SOURCE", text.source) +
                                Element("AGGREGATION-POLICY", TokenOf(kPolicies, text.aggregation)) +
                                Element("UPLOAD-POLICY", TokenOf(kPolicies, text.upload)) +
                                Element("DELETION-POLICY", TokenOf(kPolicies, text.deletion)) +
                                Element("PARAMS", params) + Element("AGGREGATION", groupedBy));
}
