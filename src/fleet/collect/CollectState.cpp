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
    constexpr auto counter = MetricsText::Kind::kCounter;
    constexpr auto gauge = MetricsText::Kind::kGauge;
    MetricsText text("lumcollect_");
    const auto add = [&text](MetricsText::Kind kind, const char* name, const char* help, auto value) {
        text.Add(kind, name, help, static_cast<double>(value));
    };
    add(counter, "stored_total", "Batches stored.", state.stored.load());
    add(counter, "events_total", "Events stored.", state.events.load());
    add(counter, "bytes_total", "Bytes of the batches stored.", state.bytes.load());
    add(counter, "duplicates_total", "Batches that were stored already.", state.duplicates.load());
    add(counter, "rejected_total", "Batches set apart with a reason.", state.rejected.load());
    add(counter, "put_off_total", "Batches handed back to the stream for later.", state.putOff.load());
    add(counter, "transactions_total", "Transactions committed.", state.transactions.load());
    add(counter, "failures_total", "Failures of the database.", state.failures.load());
    add(counter, "answers_total", "Answers to devices that asked for receipts.", state.answers.load());
    add(gauge, "broker_connected", "1 while the stream can be read.", state.brokerConnected.load());
    add(gauge, "database_connected", "1 while the database does its work.", state.databaseConnected.load());
    add(gauge, "pending", "Batches of the stream that are not stored yet.", state.pending.load());
    add(gauge, "last_commit_seconds", "When something was stored last, seconds since 1970.",
        state.lastCommit.load());
    add(gauge, "resident_bytes", "Resident memory.", ResidentBytes());
    return text.GetText();
}
