#include <algorithm>
#include <ctime>
#include <nlohmann/json.hpp>
#include <ostream>

#include "client/commands/CommandOutput.h"
#include "client/commands/Commands.h"
#include "client/commands/StatusPage.h"
#include "client/connection/Answer.h"
#include "client/status/StatusText.h"
#include "client/text/Quantity.h"
#include "client/text/TextTable.h"

namespace {

using Json = nlohmann::ordered_json;

/// Shows the members of a page under their own names: single values as lines, an object of objects and a list
/// of objects as a table each.
class StatusPrinter {
public:
    explicit StatusPrinter(std::ostream& out) : out_(out) {}

    void Print(const Json& page, const std::string& title) {
        if (!title.empty()) {
            out_ << '\n' << Harmless(title) << '\n';
        }
        std::size_t width = 0;
        for (const auto& [name, value] : page.items()) {
            width = std::max(width, value.is_structured() ? 0 : DisplayWidth(name));
        }
        for (const auto& [name, value] : page.items()) {
            if (!value.is_structured()) {
                out_ << "  " << Harmless(name) << std::string(width - DisplayWidth(name), ' ') << "  "
                     << Harmless(QuantityText(name, value)) << '\n';
            }
        }
        for (const auto& [name, value] : page.items()) {
            const std::string below = title.empty() ? name : title + ", " + name;
            if (IsTable(value)) {
                PrintTable(value, below);
            } else if (value.is_object()) {
                Print(value, below);
            } else if (value.is_array()) {
                PrintList(value, below);
            }
        }
    }

private:
    /// Members that are all objects, or a list of objects.
    static bool IsTable(const Json& value) {
        return value.is_structured() && !value.empty() &&
               std::all_of(value.begin(), value.end(), [](const Json& row) { return row.is_object(); });
    }

    void PrintTable(const Json& rows, const std::string& title) {
        TextTable table;
        std::vector<std::string> columns;
        if (rows.is_object()) {
            table.AddColumn("name");
        }
        for (const Json& row : rows) {
            for (const auto& [name, value] : row.items()) {
                if (std::find(columns.begin(), columns.end(), name) == columns.end()) {
                    columns.push_back(name);
                    table.AddColumn(name,
                                    value.is_number() ? TextTable::Align::kRight : TextTable::Align::kLeft);
                }
            }
        }
        for (const auto& [key, row] : rows.items()) {
            std::vector<std::string> cells;
            if (rows.is_object()) {
                cells.push_back(key);
            }
            for (const std::string& column : columns) {
                cells.push_back(QuantityText(column, MemberOf(row, column)));
            }
            table.AddRow(cells);
        }
        out_ << '\n' << Harmless(title) << '\n' << table.Render();
    }

    void PrintList(const Json& list, const std::string& title) {
        out_ << '\n' << Harmless(title) << (list.empty() ? ": none\n" : "\n");
        for (const Json& entry : list) {
            out_ << "  " << Harmless(QuantityText("", entry)) << '\n';
        }
    }

    std::ostream& out_;
};

/// A forwarder writes every few seconds, in a large outbox every minute or so.
constexpr int64_t kSilentSeconds = 180;

/// What the figures mean for whoever wonders why files stay.
std::string ForwarderAdvice(const Json& forwarder, int64_t now) {
    if (!forwarder.is_object()) {
        return "No forwarder has run here: files stay until lumforward, or somebody else, takes them.";
    }
    const Json& updated = MemberOf(forwarder, "updatedAt");
    const int64_t silent = updated.is_number() ? now - updated.get<int64_t>() : 0;
    if (silent > kSilentSeconds) {
        return "The forwarder has not been heard of for " + DurationText(silent) +
               "; does it run? (systemctl status lumforward)";
    }
    if (MemberOf(forwarder, "connected") != Json(true)) {
        const std::string reason = TextOf(MemberOf(forwarder, "lastError"));
        return "The forwarder has no connection to the broker" + (reason.empty() ? "." : ": " + reason);
    }
    return {};
}

}  // namespace

ExitStatus ShowStatus(CommandContext& context) {
    const AgentAnswer status = FetchStatus(context.agent);
    if (!status.IsDone()) {
        return Fail(context, status);
    }
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, status.content);
    } else {
        context.console.out << StatusAsText(status.content, context.console.colours);
    }
    return ExitStatus::kDone;
}

ExitStatus ShowOutbox(CommandContext& context) {
    const AgentAnswer status = FetchStatus(context.agent);
    if (!status.IsDone()) {
        return Fail(context, status);
    }
    const Json& outbox = StatusMember(status.content, "outbox");
    if (!outbox.is_object()) {
        return Fail(
            context, ExitStatus::kFailed,
            "the agent does not tell about its outbox; is the module FileStore loaded? (lumctl modules)");
    }
    if (context.output == OutputFormat::kJson) {
        PrintJson(context, outbox);
        return ExitStatus::kDone;
    }
    StatusPrinter(context.console.out).Print(outbox, "");
    const std::string advice = ForwarderAdvice(MemberOf(outbox, "forwarder"), std::time(nullptr));
    if (!advice.empty()) {
        context.console.out << '\n' << Harmless(advice) << '\n';
    }
    return ExitStatus::kDone;
}
