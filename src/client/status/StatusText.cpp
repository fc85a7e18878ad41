#include "client/status/StatusText.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "client/connection/Answer.h"
#include "client/text/Quantity.h"
#include "client/text/TextTable.h"
#include "client/text/TimeText.h"

namespace {

using Json = nlohmann::ordered_json;

std::optional<uint64_t> NumberOf(const Json& json, std::string_view name) {
    const Json& value = MemberOf(json, name);
    return value.is_number() && value.get<double>() >= 0 ? std::optional(value.get<uint64_t>())
                                                         : std::nullopt;
}

/// "3 files", "1 file"; empty where the number is not told.
std::string Counted(const Json& json, std::string_view name, const std::string& one) {
    const std::optional<uint64_t> count = NumberOf(json, name);
    return count ? CountText(*count, one) : std::string();
}

/// The quantity of that name after `before` and before `after`; empty where it is not told.
std::string Told(const Json& json, std::string_view name, const std::string& before,
                 const std::string& after = "") {
    const Json& value = MemberOf(json, name);
    return value.is_null() ? std::string() : before + QuantityText(name, value) + after;
}

/// The parts that are not empty, with commas between them.
std::string Joined(const std::vector<std::string>& parts) {
    std::string all;
    for (const std::string& part : parts) {
        all += (all.empty() || part.empty() ? "" : ", ") + part;
    }
    return all;
}

/// Lines of a term and what there is to say about it, below each other.
class Lines {
public:
    /// Nothing to say, no line.
    void Add(const std::string& term, const std::string& text) {
        if (!text.empty()) {
            out_ += Harmless(term) + std::string(kTermColumns - std::min(kTermColumns, term.size()), ' ') +
                    Harmless(text) + "\n";
        }
    }

    [[nodiscard]] const std::string& Get() const { return out_; }

private:
    static constexpr std::size_t kTermColumns = 11;
    std::string out_;
};

void AddHealth(const Json& status, Lines& lines) {
    const Json& reasons = MemberOf(status, "health");
    if (!reasons.is_array()) {
        return;
    }
    if (reasons.empty()) {
        lines.Add("Health", "ok");
    }
    for (std::size_t i = 0; i < reasons.size(); ++i) {
        lines.Add(i == 0 ? "Health" : "", TextOf(reasons[i]));
    }
}

void AddModules(const Json& status, Lines& lines) {
    const Json& modules = MemberOf(status, "modules");
    for (std::size_t i = 0; i < (modules.is_array() ? modules.size() : 0); ++i) {
        lines.Add(i == 0 ? "Modules" : "",
                  TextOf(MemberOf(modules[i], "name")) + " " + TextOf(MemberOf(modules[i], "version")));
    }
}

std::string OutboxText(const Json& outbox) {
    if (NumberOf(outbox, "files") == 0) {
        return "nothing waits to be sent";
    }
    return Joined({Counted(outbox, "files", "file"), Told(outbox, "bytes", ""),
                   Told(outbox, "oldestAge", "the oldest waits for ")});
}

/// One line for each upload that is not complete.
void AddUploads(const Json& status, Lines& lines) {
    const Json rows = RowsOf(MemberOf(status, "uploads"));
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const Json& row = rows[i];
        const std::string reason = TextOf(MemberOf(row, "Reason"));
        lines.Add(i == 0 ? "Uploads" : "",
                  "model " + TextOf(MemberOf(row, "Model")) + " goes on where it stopped: " +
                      Joined({Told(row, "HandedOver", "", " handed over"), Told(row, "Left", "", " left")}) +
                      (reason.empty() ? "" : "; " + reason));
    }
}

std::string ModelTable(const Json& models, bool bold) {
    static const std::vector<std::pair<std::string, std::string>> kTimes{
        {"Oldest", "oldest"},
        {"Newest", "newest"},
        {"Last upload", "lastUpload"},
        {"Last aggregation", "lastAggregation"}};
    TextTable table;
    table.SetBoldTitles(bold);
    table.AddColumn("Model");
    table.AddColumn("Enabled");
    table.AddColumn("Events", TextTable::Align::kRight);
    for (const auto& [title, name] : kTimes) {
        table.AddColumn(title);
    }
    for (const Json& model : models) {
        const Json& enabled = MemberOf(model, "enabled");
        const std::optional<uint64_t> events = NumberOf(model, "events");
        std::vector<std::string> cells{TextOf(MemberOf(model, "name")),
                                       enabled.is_boolean() && !enabled.get<bool>() ? "no" : "yes",
                                       events ? WithThousands(*events) : ""};
        for (const auto& [title, name] : kTimes) {
            cells.push_back(QuantityText(name, MemberOf(model, name)));
        }
        table.AddRow(cells);
    }
    return table.Render();
}

/// A forwarder writes every few seconds, in a large outbox every minute or so.
constexpr int64_t kSilentSeconds = 180;

/// What the figures mean for whoever wonders why files stay; empty where all is well.
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

/// What a module of a later release may tell.
void AddUnknown(const Json& status, Lines& lines) {
    static const std::vector<std::string> kKnown{
        "version", "uptime",  "process", "health",  "memory", "threads", "freeBytes", "clients",
        "calls",   "modules", "outbox",  "uploads", "models", "sizes",   "queue",     "alerts"};
    for (const auto& [name, value] : status.items()) {
        if (std::find(kKnown.begin(), kKnown.end(), name) == kKnown.end()) {
            lines.Add(name + " ", QuantityText(name, value));
        }
    }
}

}  // namespace

std::string StatusAsText(const Json& status, bool bold) {
    Lines lines;
    AddHealth(status, lines);
    lines.Add("Agent", Joined({Told(status, "version", "version "), Told(status, "uptime", "up for "),
                               Told(status, "process", "process ")}));
    AddModules(status, lines);
    lines.Add("Memory", Joined({Told(status, "memory", ""), Counted(status, "threads", "thread")}));
    const Json& sizes = MemberOf(status, "sizes");
    lines.Add("Disk", Joined({Told(sizes, "database", "database "), Told(sizes, "log", "its log "),
                              Told(status, "freeBytes", "", " free")}));
    const Json& calls = MemberOf(status, "calls");
    lines.Add("Calls",
              Joined({Counted(status, "clients", "connection"), Told(calls, "running", "", " running"),
                      Told(calls, "waiting", "", " waiting")}));
    lines.Add("Tasks", Told(status, "queue", "", " waiting"));
    lines.Add("Outbox", OutboxText(MemberOf(status, "outbox")));
    AddUploads(status, lines);
    const Json& alerts = MemberOf(status, "alerts");
    lines.Add("Alerts",
              Joined({Told(alerts, "sent", "", " sent"), Told(alerts, "heldBack", "", " held back")}));
    AddUnknown(status, lines);
    const Json& models = MemberOf(status, "models");
    return lines.Get() +
           (models.is_array() && !models.empty() ? "\n" + ModelTable(models, bold) : std::string());
}

std::string OutboxAsText(const Json& outbox, int64_t now) {
    Lines lines;
    lines.Add("Outbox", OutboxText(outbox));
    const Json& forwarder = MemberOf(outbox, "forwarder");
    const std::string device = TextOf(MemberOf(forwarder, "device"));
    lines.Add("Forwarder", Joined({device.empty() ? "" : "device " + device,
                                   MemberOf(forwarder, "connected") == Json(true) ? "connected" : "",
                                   Told(forwarder, "updatedAt", "heard of at ")}));
    lines.Add("Sent", Joined({Told(forwarder, "unconfirmed", "", " not confirmed yet"),
                              Told(forwarder, "confirmed", "", " confirmed"),
                              Told(forwarder, "setAside", "", " set aside"),
                              Told(forwarder, "lastReceipt", "last receipt ")}));
    const std::string advice = ForwarderAdvice(forwarder, now);
    return lines.Get() + (advice.empty() ? "" : "\n" + Harmless(advice) + "\n");
}
