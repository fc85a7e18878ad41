#include <algorithm>
#include <ctime>
#include <nlohmann/json.hpp>
#include <ostream>

#include "client/commands/CommandOutput.h"
#include "client/commands/Commands.h"
#include "client/commands/StatusPage.h"
#include "client/events/EventCount.h"
#include "client/model/Requests.h"
#include "client/text/Quantity.h"
#include "client/text/TimeText.h"
#include "contract/Actions.h"

namespace {

struct Doomed {
    int64_t events = 0;
    /// Nothing where the agent does not say up to when the model's events were uploaded.
    std::optional<int64_t> notUploaded;
};

/// How many events a deletion takes, up to a moment or all of them.
Doomed CountDoomed(AgentConnection& agent, const std::string& model, std::optional<int32_t> before) {
    Doomed doomed{CountEvents(agent, model, before), std::nullopt};
    if (const std::optional<int32_t> uploaded = FetchLastUpload(agent, model)) {
        doomed.notUploaded = std::max<int64_t>(doomed.events - CountEvents(agent, model, uploaded), 0);
    }
    return doomed;
}

std::string Describe(const Doomed& doomed) {
    std::string events = CountText(static_cast<uint64_t>(doomed.events), "event");
    if (!doomed.notUploaded || doomed.events == 0) {
        return events;
    }
    return events + (*doomed.notUploaded == 0
                         ? std::string(" (all of them uploaded)")
                         : " (" + WithThousands(static_cast<uint64_t>(*doomed.notUploaded)) +
                               " of them not uploaded)");
}

/// Whether the user wants the model's events gone with it. A model without events goes without a question.
void ConfirmDeletion(CommandContext& context, const std::string& model) {
    const Doomed doomed = CountDoomed(context.agent, model, std::nullopt);
    if (doomed.events > 0) {
        Confirm(context, "model '" + model + "' has " + Describe(doomed) + ", which would go with it",
                "Delete it?", "model '" + model + "' was not deleted");
    }
}

ExitStatus ShowDryRun(CommandContext& context, const PurgeOptions& options, const Doomed& doomed) {
    if (context.output == OutputFormat::kJson) {
        nlohmann::ordered_json json{{"events", doomed.events}};
        if (doomed.notUploaded) {
            json["notUploaded"] = *doomed.notUploaded;
        }
        PrintJson(context, json);
        return ExitStatus::kDone;
    }
    context.console.out << "Would delete " << Describe(doomed) << " of model '" << options.model << "'.\n";
    return ExitStatus::kDone;
}

}  // namespace

ExitStatus DeleteModel(CommandContext& context, const std::string& model, bool yes) {
    FindModel(context.agent, model);
    if (!yes) {
        ConfirmDeletion(context, model);
    }
    const AgentAnswer answer =
        Required(CallAction(context.agent, actions::kDeleteModels, DeleteModelsRequest({model})));
    const std::vector<std::string> left = NamesIn(Required(FetchModelList(context.agent)));
    if (std::find(left.begin(), left.end(), model) != left.end()) {
        const ExitStatus exit = Fail(context, ExitStatus::kFailed,
                                     "model '" + model + "' could not be deleted" +
                                         (answer.messages.empty() ? "; the agent's log says why" : ""));
        PrintMessages(context, answer);
        return exit;
    }
    return Done(context, "Model '" + model + "' is deleted.");
}

ExitStatus PurgeEvents(CommandContext& context, const PurgeOptions& options) {
    FindModel(context.agent, options.model);
    Doomed doomed;
    if (!options.yes || options.dryRun) {
        doomed = CountDoomed(context.agent, options.model, options.before);
    }
    if (options.dryRun) {
        return ShowDryRun(context, options, doomed);
    }
    const std::string moment = options.before ? FormatLocalTime(*options.before) : std::string("now");
    if (!options.yes && doomed.events > 0) {
        Confirm(context,
                Describe(doomed) + " of model '" + options.model + "' before " + moment +
                    " would be deleted for good",
                "Delete them?", "nothing was deleted");
    }
    Required(CallAction(context.agent, actions::kDeleteEvents, PurgeRequest(options.model, options.before)));
    return Done(context,
                "Events of model '" + options.model + "' before " + moment + " are queued for deletion.");
}
