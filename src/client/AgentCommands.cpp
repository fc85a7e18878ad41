#include <iterator>
#include <ostream>
#include <string>

#include "client/Answer.h"
#include "client/CommandOutput.h"
#include "client/Commands.h"
#include "client/TextTable.h"
#include "contract/Actions.h"
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
    const AgentAnswer answer = AskFor(context.agent, target);
    if (!answer.IsDone()) {
        return Fail(context, answer);
    }
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

}  // namespace

ExitStatus InvokeAction(CommandContext& context, const std::string& action,
                        const std::optional<std::string>& arguments) {
    std::string text = arguments.value_or("");
    if (text == "-") {
        text.assign(std::istreambuf_iterator<char>(context.console.in), {});
    }
    const AgentAnswer answer = CallActionWithText(context.agent, action, std::move(text));
    if (answer.exit == ExitStatus::kNoAgent) {
        return Fail(context, answer);
    }
    context.console.out << answer.body << '\n';
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
        std::string error;
        if (!SettingsRequest(assignments, request, error)) {
            return Fail(context, ExitStatus::kWrongCommandLine, error);
        }
        const AgentAnswer change = CallAction(context.agent, actions::kSetValues, request);
        if (!change.IsDone()) {
            return Fail(context, change);
        }
    }
    const AgentAnswer answer = CallAction(context.agent, actions::kGetValues, Json::object());
    if (!answer.IsDone()) {
        return Fail(context, answer);
    }
    const Json& settings = MemberOf(answer.content, "Values");
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
    for (const auto& [name, value] : MemberOf(request, "Values").items()) {
        if (MemberOf(settings, name) != value) {
            return Fail(context, ExitStatus::kFailed,
                        "the agent did not keep " + name + "; is its ini file writable?");
        }
    }
    return ExitStatus::kDone;
}

ExitStatus CreateAlert(CommandContext& context, const std::string& text,
                       const std::optional<std::string>& status) {
    const AgentAnswer answer = CallAction(context.agent, actions::kCreateAlert, AlertRequest(text, status));
    return answer.IsDone()
               ? Done(context, "The alert was taken; its repeat within the minimum gap is held back.")
               : Fail(context, answer);
}

ExitStatus ShowFile(CommandContext& context, const std::string& path) {
    LumContainer container;
    LumString error;
    if (!container.LoadFromFile(LumString(std::string_view(path)), error)) {
        return Fail(context, ExitStatus::kFailed, path + ": " + std::string(error.View()));
    }
    const Json json = Json::parse(container.ToJson(), nullptr, false);
    if (json.is_discarded()) {
        return Fail(context, ExitStatus::kFailed, path + ": its content cannot be shown as JSON");
    }
    PrintJson(context, json);
    return ExitStatus::kDone;
}
