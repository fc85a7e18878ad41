#include <algorithm>
#include <array>
#include <ostream>

#include "client/Answer.h"
#include "client/CommandOutput.h"
#include "client/Commands.h"
#include "client/TextTable.h"
#include "client/TimeText.h"
#include "contract/Actions.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<std::string_view, 3> kFixedColumns{"EventDate", "EventDeviceId", "EventGroupId"};

bool HasColumn(const ModelDefinition& definition, const std::string& name) {
    return std::find(kFixedColumns.begin(), kFixedColumns.end(), name) != kFixedColumns.end() ||
           definition.Find(name) != nullptr;
}

TextTable::Align AlignOf(std::string_view type) {
    return type == kTypeInteger || type == kTypeDouble ? TextTable::Align::kRight : TextTable::Align::kLeft;
}

std::string EventTable(const ModelDefinition& definition, const Json& result) {
    TextTable table;
    table.AddColumn("Date");
    table.AddColumn("Device", TextTable::Align::kRight);
    table.AddColumn("Group", TextTable::Align::kRight);
    for (const ModelParameter& parameter : definition.parameters) {
        table.AddColumn(parameter.name, AlignOf(parameter.type));
    }
    for (std::size_t i = 0; i < RowCount(result); ++i) {
        std::vector<std::string> cells{CellOf(ValueAt(MemberOf(result, "EventDate"), i), kTypeTimestamp),
                                       CellOf(ValueAt(MemberOf(result, "EventDeviceId"), i), kTypeInteger),
                                       CellOf(ValueAt(MemberOf(result, "EventGroupId"), i), kTypeInteger)};
        for (const ModelParameter& parameter : definition.parameters) {
            cells.push_back(CellOf(ValueAt(MemberOf(result, parameter.name), i), parameter.type));
        }
        table.AddRow(cells);
    }
    return table.Render();
}

}  // namespace

ExitStatus CreateEvent(CommandContext& context, const CreateOptions& options) {
    ModelDefinition definition;
    const AgentAnswer model = FetchModel(context.agent, options.model, definition);
    if (!model.IsDone()) {
        return Fail(context, model);
    }
    Json eventParams;
    std::string error;
    if (!CreateEventParams(definition, options.device, options.group, options.assignments, eventParams,
                           error)) {
        return Fail(context, ExitStatus::kWrongCommandLine, error);
    }
    const AgentAnswer answer = CallAction(context.agent, actions::kCreateEvent,
                                          CreateRequest(options.model, std::move(eventParams)));
    return answer.IsDone() ? Done(context, "The agent took one event of model '" + options.model + "'.")
                           : Fail(context, answer);
}

ExitStatus ListEvents(CommandContext& context, const EventsQuery& query) {
    ModelDefinition definition;
    const AgentAnswer model = FetchModel(context.agent, query.model, definition);
    if (!model.IsDone()) {
        return Fail(context, model);
    }
    if (query.sort && !HasColumn(definition, *query.sort)) {
        return Fail(context, ExitStatus::kWrongCommandLine,
                    "model '" + query.model + "' has no column '" + *query.sort + "' to sort by");
    }
    AgentAnswer answer = CallAction(context.agent, actions::kGetEvents, EventsRequest(query));
    if (!answer.IsDone()) {
        if (answer.status == 1 && query.since && query.until) {
            answer.error += "; it always does where --since and --until are given together";
        }
        return Fail(context, answer);
    }
    const Json& result = MemberOf(answer.content, "Result");
    const Json& count = MemberOf(result, "EventCount");
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, {{"EventCount", count}, {"Events", RowsOf(result)}});
        return ExitStatus::kDone;
    }
    context.console.out << EventTable(definition, result) << RowCount(result) << " events shown; EventCount "
                        << CellOf(count, kTypeInteger)
                        << " (all events of the model, whatever the filters)\n";
    return ExitStatus::kDone;
}

ExitStatus PurgeEvents(CommandContext& context, const std::string& model, std::optional<int32_t> before) {
    const AgentAnswer answer = CallAction(context.agent, actions::kDeleteEvents, PurgeRequest(model, before));
    const std::string moment = before ? FormatLocalTime(*before) : std::string("now");
    return answer.IsDone() ? Done(context, "Events of model '" + model + "' before " + moment +
                                               " are queued for deletion.")
                           : Fail(context, answer);
}
