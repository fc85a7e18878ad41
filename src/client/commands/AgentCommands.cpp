#include <iterator>
#include <ostream>
#include <string>

#include "client/commands/CommandOutput.h"
#include "client/commands/Commands.h"
#include "client/commands/StatusPage.h"
#include "client/connection/Answer.h"
#include "client/model/Requests.h"
#include "client/text/Suggestion.h"
#include "client/text/TextTable.h"
#include "contract/Actions.h"
#include "contract/ContainerKeys.h"
#include "host/container/LumContainer.h"

namespace {

using Json = nlohmann::ordered_json;

struct PageColumn {
    std::string_view title;
    std::string_view member;
};

/// Shows a page of the control socket that is a list of objects.
ExitStatus ListPage(CommandContext& context, std::string_view target,
                    std::initializer_list<PageColumn> columns) {
    const AgentAnswer answer = Required(AskFor(context.agent, target));
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, answer.content);
        return ExitStatus::kDone;
    }
    TextTable table;
    for (const PageColumn& column : columns) {
        table.AddColumn(column.title);
    }
    for (const Json& entry : answer.content) {
        std::vector<std::string> cells;
        for (const PageColumn& column : columns) {
            cells.push_back(TextOf(MemberOf(entry, column.member)));
        }
        table.AddRow(cells);
    }
    context.console.out << table.Render();
    return ExitStatus::kDone;
}

void SuggestAction(CommandContext& context, const std::string& action) {
    const AgentAnswer known = AskFor(context.agent, "/actions");
    std::vector<std::string> names;
    for (const Json& entry : known.content) {
        names.push_back(TextOf(MemberOf(entry, "name")));
    }
    const std::string nearest = NearestName(action, names);
    if (!nearest.empty()) {
        context.console.err << "lumctl: did you mean '" << Harmless(nearest) << "'?\n";
    }
}

}  // namespace

ExitStatus InvokeAction(CommandContext& context, const std::string& action,
                        const std::optional<std::string>& arguments) {
    std::string text = arguments.value_or("");
    if (text == "-") {
        text.assign(std::istreambuf_iterator<char>(context.console.in), {});
    }
    const AgentAnswer answer = CallActionWithText(context.agent, action, std::move(text));
    if (answer.exit == ExitStatus::kNoAgent) {
        return Fail(context, answer.exit, answer.error);
    }
    context.console.out << answer.body << '\n';
    if (answer.httpStatus == kHttpNotFound) {
        SuggestAction(context, action);
    }
    return answer.exit;
}

ExitStatus ListActions(CommandContext& context) {
    return ListPage(context, "/actions",
                    {{"Action", "name"}, {"Signature", "signature"}, {"Module", "module"}});
}

ExitStatus ListModules(CommandContext& context) {
    return ListPage(
        context, "/modules",
        {{"Module", "name"}, {"File", "file"}, {"Version", "version"}, {"Description", "description"}});
}

ExitStatus ShowSettings(CommandContext& context, const std::vector<std::string>& assignments) {
    Json request;
    if (!assignments.empty()) {
        request = SettingsRequest(assignments);
        Required(CallAction(context.agent, actions::kSetValues, request));
    }
    const AgentAnswer answer = Required(CallAction(context.agent, actions::kGetValues, Json::object()));
    const Json& settings = MemberOf(answer.content, keys::kValues);
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, settings);
    } else {
        TextTable table;
        table.AddColumn("Setting");
        table.AddColumn("Value");
        for (const auto& [name, value] : settings.items()) {
            table.AddRow({name, CellOf(value, {})});
        }
        context.console.out << table.Render();
    }
    for (const auto& [name, value] : MemberOf(request, keys::kValues).items()) {
        if (MemberOf(settings, name) != value) {
            return Fail(context, ExitStatus::kFailed,
                        "the agent did not keep " + name + "; is its ini file writable?");
        }
    }
    return ExitStatus::kDone;
}

ExitStatus CreateAlert(CommandContext& context, const std::string& text,
                       const std::optional<std::string>& status) {
    const std::optional<int64_t> heldBefore = FetchAlertsHeldBack(context.agent);
    Required(CallAction(context.agent, actions::kCreateAlert, AlertRequest(text, status)));
    // The action's status is the same for an alert that was held back; the count of those is not.
    const std::optional<int64_t> heldAfter = FetchAlertsHeldBack(context.agent);
    if (!heldBefore || !heldAfter) {
        return Done(context, "The alert was taken; its repeat within the minimum gap is held back.");
    }
    if (*heldAfter == *heldBefore) {
        return Done(context, "The alert is on its way.");
    }
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, {{"status", 0}, {"heldBack", true}});
        return ExitStatus::kDone;
    }
    return Done(context,
                "The alert was held back: the same one went out less than AlertMinimumGap minutes ago "
                "(lumctl settings shows the gap).");
}

ExitStatus ShowFile(CommandContext& context, const std::string& path) {
    LumContainer container;
    LumString error;
    if (!container.LoadFromFile(LumString(std::string_view(path)), error)) {
        return Fail(context, ExitStatus::kFailed, path + ": " + std::string(error.View()));
    }
    PrintJson(context, Json::parse(container.ToJson()));
    return ExitStatus::kDone;
}
