#include "fleet/collect/CollectState.h"

#include "fleet/service/MetricsText.h"

HealthReport CollectHealth(const CollectState& state) {
    HealthReport report;
    if (!state.brokerConnected) {
        report.reasons.emplace_back("The broker cannot be reached, or its stream cannot be read");
    }
    if (!state.databaseConnected) {
        report.reasons.emplace_back("The database cannot be reached, or cannot do its work");
    }
    return report;
}

std::string CollectMetrics(const CollectState& state) {
    MetricsText text("lumcollect_");
    text.AddCounter("stored_total", "Batches stored.", state.stored.load());
    text.AddCounter("events_total", "Events stored.", state.events.load());
    text.AddCounter("bytes_total", "Bytes of the batches stored.", state.bytes.load());
    text.AddCounter("duplicates_total", "Batches that were stored already.", state.duplicates.load());
    text.AddCounter("rejected_total", "Batches set apart with a reason.", state.rejected.load());
    text.AddCounter("put_off_total", "Batches handed back to the stream for later.", state.putOff.load());
    text.AddCounter("transactions_total", "Transactions committed.", state.transactions.load());
    text.AddCounter("failures_total", "Failures of the database.", state.failures.load());
    text.AddCounter("answers_total", "Answers to devices that asked for receipts.", state.answers.load());
    text.AddGauge("broker_connected", "1 while the stream can be read.", state.brokerConnected.load());
    text.AddGauge("database_connected", "1 while the database does its work.",
                  state.databaseConnected.load());
    text.AddGauge("pending", "Batches of the stream that are not stored yet.", state.pending.load());
    text.AddGauge("last_commit_seconds", "When something was stored last, seconds since 1970.",
                  state.lastCommit.load());
    text.AddGauge("resident_bytes", "Resident memory.", ResidentBytes());
    return text.GetText();
}
