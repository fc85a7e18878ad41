#include "fleet/forward/ForwardState.h"

#include <nlohmann/json.hpp>

#include "fleet/service/MetricsText.h"

HealthReport ForwardHealth(const ForwardState& state) {
    HealthReport report;
    if (!state.connected) {
        report.reasons.emplace_back("The broker cannot be reached");
    }
    if (!state.brokerTakes) {
        report.reasons.emplace_back("The broker refuses batches");
    }
    if (!state.outboxReadable) {
        report.reasons.emplace_back("The outbox cannot be read");
    }
    return report;
}

std::string ForwardMetrics(const ForwardState& state) {
    MetricsText text("lumforward_");
    text.AddCounter("published_total", "Batches handed to the broker, repeats included.",
                    state.published.load());
    text.AddCounter("published_bytes_total", "Bytes of their contents.", state.publishedBytes.load());
    text.AddCounter("acknowledged_total", "Batches that the broker holds.", state.acknowledged.load());
    text.AddCounter("confirmed_total", "Batches that the database holds, gone from the outbox.",
                    state.confirmed.load());
    text.AddCounter("set_aside_total", "Entries that cannot be sent or were refused.", state.setAside.load());
    text.AddCounter("connects_total", "Connections made to the broker.", state.connects.load());
    text.AddGauge("connected", "1 while there is a connection to the broker.", state.connected.load());
    text.AddGauge("outbox_entries", "Entries in the outbox.", state.waiting.load());
    text.AddGauge("outbox_bytes", "Bytes of their contents.", state.waitingBytes.load());
    text.AddGauge("outbox_oldest_seconds", "When the oldest of them was written, seconds since 1970.",
                  state.oldest.load());
    text.AddGauge("unacknowledged", "Batches under way to the broker.", state.underWay.load());
    text.AddGauge("unconfirmed", "Batches sent without a receipt yet.", state.unconfirmed.load());
    text.AddGauge("last_receipt_seconds", "When the last receipt came, seconds since 1970.",
                  state.lastReceipt.load());
    text.AddGauge("resident_bytes", "Resident memory.", ResidentBytes());
    return text.GetText();
}

std::string ForwardStateJson(const ForwardState& state, const std::string& device,
                             const std::string& lastError, int64_t now) {
    nlohmann::ordered_json json;
    json["Device"] = device;
    json["Connected"] = state.connected.load();
    json["Entries"] = state.waiting.load();
    json["Bytes"] = state.waitingBytes.load();
    json["Oldest"] = state.oldest.load();
    json["Unconfirmed"] = state.unconfirmed.load();
    json["Confirmed"] = state.confirmed.load();
    json["SetAside"] = state.setAside.load();
    json["LastReceipt"] = state.lastReceipt.load();
    json["LastError"] = lastError;
    json["UpdatedAt"] = now;
    return json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}
