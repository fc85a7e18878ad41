#include "support/TestHost.h"

#include <algorithm>

void TestHost::StartWith(std::string_view definition) const {
    Drop("model.xml", definition);
    Initialise();
}

std::vector<std::string> TestHost::Said(std::size_t from) const {
    std::vector<std::string> lines = Log();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(std::min(from, lines.size())));
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("trace "); });
    return lines;
}

const std::string kLogonDefinition =
    UserModel("Logon", Param("User", "_STRING_") + Param("Count", "_INTEGER_", "0"));

std::string Param(std::string_view name, std::string_view type, std::string_view defaultText) {
    std::string text = "<PARAM><NAME>" + std::string(name) + "</NAME><TYPE>" + std::string(type) + "</TYPE>";
    if (!defaultText.empty()) {
        text += "<DEFAULT>" + std::string(defaultText) + "</DEFAULT>";
    }
    return text + "</PARAM>";
}

std::string UserModel(std::string_view name, std::string_view params) {
    return "<MODEL><NAME>" + std::string(name) +
           "</NAME><CLASS>Security</CLASS><NOTE>A note</NOTE><SEVERITY>1</SEVERITY>"
           "<TYPE>_EVENTLOG_MODELTYPE_USER_</TYPE><UPLOAD-POLICY>_DAILY_</UPLOAD-POLICY>"
           "<DELETION-POLICY>_MONTHLY_</DELETION-POLICY><PARAMS>" +
           std::string(params) + "</PARAMS></MODEL>";
}

std::string AutomaticModel(std::string_view name, std::string_view source, std::string_view policy,
                           std::string_view params, std::string_view aggregation) {
    return "<MODEL><NAME>" + std::string(name) +
           "</NAME><CLASS>Security</CLASS><NOTE>A note</NOTE><SEVERITY>1</SEVERITY>"
           "<TYPE>_EVENTLOG_MODELTYPE_AUTO_</TYPE><SOURCE>" +
           std::string(source) + "</SOURCE><AGGREGATION-POLICY>" + std::string(policy) +
           "</AGGREGATION-POLICY><UPLOAD-POLICY>_DAILY_</UPLOAD-POLICY>"
           "<DELETION-POLICY>_MONTHLY_</DELETION-POLICY><PARAMS>" +
           std::string(params) + "</PARAMS><AGGREGATION>" + std::string(aggregation) +
           "</AGGREGATION></MODEL>";
}
