#include "fleet/collect/Collector.h"

#include <algorithm>
#include <ctime>

#include "fleet/collect/database/Schema.h"
#include "fleet/service/SteadyClock.h"
#include "fleet/service/StopSignal.h"
#include "fleet/wire/Subjects.h"
#include "host/log/LumDebug.h"

namespace {

LumDebug CollectDebug("lumcollect", "Collector of the fleet's events");

constexpr int64_t kFetchWaitMs = 300;
constexpr int64_t kPutOffMs = 30'000;
constexpr int64_t kHandBackMs = 1'000;
constexpr int64_t kMaintainMs = 600'000;
constexpr int64_t kLookMs = 15'000;
constexpr int32_t kQuestionBytes = 8'000'000;
/// Questions that are answered between two transactions.
constexpr int kQuestionsAtOnce = 20;

LumString Text(const std::string& text) {
    return LumString(std::string_view(text));
}

}  // namespace

Collector::Collector(const CollectSettings& settings, CollectState& state)
    : settings_(settings),
      state_(state),
      store_(database_, settings.limits, settings.name),
      databaseRetry_(settings.retryFirstMs, settings.retryLastMs, RandomSeed()),
      brokerRetry_(settings.retryFirstMs, settings.retryLastMs, RandomSeed()) {}

void Collector::Run() {
    while (!StopSignal::IsSet()) {
        try {
            if (!database_.IsOpen() && !ConnectDatabase()) {
                StopSignal::Wait(databaseRetry_.Next());
            } else if (!broker_.IsConnected() && !ConnectBroker()) {
                StopSignal::Wait(brokerRetry_.Next());
            } else {
                Work();
            }
        } catch (const SqlError& error) {
            LoseDatabase(error.what());
        }
    }
    ReturnFetched();
    reader_.Close();
    static_cast<void>(broker_.Flush(1'000));  // acknowledgements that get lost cost a repeat, nothing more
    broker_.Close();
}

void Collector::Complain(const std::string& reason) {
    // One line for an outage, however long it lasts.
    if (reason != lastError_) {
        CollectDebug.WarningWithNL("%S", Text(reason));
        lastError_ = reason;
    }
}

bool Collector::ConnectDatabase() {
    try {
        database_.Open(settings_.database, kWriterRole);
        CheckSchema(database_);
    } catch (const SqlError& error) {
        LoseDatabase(error.what());
        return false;
    }
    CollectDebug.PrintWithNL("Connected to the database");
    state_.databaseConnected = true;
    lastError_.clear();
    store_.GetTables().Forget();
    // The database may be another one than before.
    LoseBroker("");
    return true;
}

bool Collector::ConnectBroker() {
    std::string error;
    StreamState stream;
    if (!broker_.Connect(settings_.broker, error) ||
        !ReadStreamState(broker_, settings_.stream.name, settings_.stream.consumer, stream, error) ||
        !RecoverLost(stream, error) ||
        !reader_.Open(broker_, settings_.stream.name, settings_.stream.consumer, error) ||
        !broker_.Subscribe(kAskSubjects, kConsumerName, kQuestionBytes, error)) {
        LoseBroker(error);
        return false;
    }
    CollectDebug.PrintWithNL("Connected to the broker");
    streamMadeNs_ = stream.createdNs;
    state_.brokerConnected = true;
    lastError_.clear();
    return true;
}

bool Collector::RecoverLost(const StreamState& stream, std::string& error) {
    const SqlRows rows = database_.Run(
        "SELECT max(sequence) FROM lum.progress WHERE stream_made = to_timestamp($1::bigint / 1e9)",
        {std::to_string(stream.createdNs)});
    const std::string& known = rows.at(0).at(0);
    const uint64_t last = known.empty() ? 0 : std::stoull(known);
    if (known.empty() || last >= stream.doneSequence) {
        return true;
    }
    // Collectors side by side commit out of order, by no more than what may be under way.
    const auto margin = static_cast<uint64_t>(settings_.stream.maxUnacknowledged);
    const uint64_t from = last > margin ? last - margin : 1;
    CollectDebug.WarningWithNL(
        "The database has lost what the stream handed out after number %ld; it is handed out again from "
        "number %ld on",
        static_cast<int64_t>(last), static_cast<int64_t>(from));
    return RewindConsumer(broker_, settings_.stream, from, error);
}

void Collector::Work() {
    AnswerQuestions();
    if (!broker_.IsConnected()) {
        LoseBroker("The connection to the broker is lost");
        return;
    }
    Fetched fetched;
    if (!TakeFetched(fetched)) {
        return;
    }
    if (!fetched.messages.empty()) {
        Store(fetched);
    }
    LookAtStream();
    Maintain();
}

bool Collector::TakeFetched(Fetched& fetched) {
    if (!ahead_.valid()) {
        FetchAhead();
    }
    fetched = ahead_.get();
    if (!fetched.error.empty()) {
        LoseBroker(fetched.error);
        return false;
    }
    brokerRetry_.Reset();
    FetchAhead();
    return true;
}

void Collector::FetchAhead() {
    ahead_ = std::async(std::launch::async, [this] { return Fetch(); });
}

Collector::Fetched Collector::Fetch() {
    Fetched fetched;
    std::string error;
    if (!reader_.Fetch(static_cast<std::size_t>(settings_.batches), settings_.fetchBytes, kFetchWaitMs,
                       fetched.messages, error)) {
        fetched.error = error.empty() ? "Cannot fetch from the stream" : error;
    }
    // Here, not where they are stored: meanwhile the database works on those before them.
    fetched.batches.reserve(fetched.messages.size());
    for (const BrokerMessage& message : fetched.messages) {
        fetched.batches.push_back(ReadMessage(
            message.Subject(), [&message](const char* name) { return message.Header(name); }, message.Data(),
            static_cast<std::size_t>(settings_.maxBatchBytes)));
        fetched.batches.back().sequence = message.Sequence();
    }
    return fetched;
}

void Collector::ReturnFetched() {
    if (!ahead_.valid()) {
        return;
    }
    for (const BrokerMessage& message : ahead_.get().messages) {
        message.HandBack(kHandBackMs);
    }
}

void Collector::Store(Fetched& fetched) {
    try {
        store_.Store(fetched.batches, streamMadeNs_);
    } catch (const SqlError&) {
        ++state_.failures;
        for (const BrokerMessage& message : fetched.messages) {
            message.HandBack(kHandBackMs);
        }
        throw;
    }
    databaseRetry_.Reset();
    ++state_.transactions;
    state_.lastCommit = std::time(nullptr);
    Finish(fetched);
}

void Collector::Finish(const Fetched& fetched) {
    for (std::size_t i = 0; i < fetched.messages.size(); ++i) {
        Count(fetched.batches[i]);
        if (fetched.batches[i].outcome == Outcome::kLater) {
            fetched.messages[i].HandBack(kPutOffMs);
        } else {
            fetched.messages[i].Acknowledge();
        }
    }
    SendReceipts(fetched.batches);
}

void Collector::Count(const Incoming& batch) {
    switch (batch.outcome) {
        case Outcome::kStored:
            ++state_.stored;
            state_.bytes += batch.bytes;
            if (const auto* const events = std::get_if<EventContent>(&batch.content)) {
                state_.events += events->dates.size();
            }
            break;
        case Outcome::kDuplicate:
            ++state_.duplicates;
            break;
        case Outcome::kRejected:
            ++state_.rejected;
            CollectDebug.PrintWithNL("Rejected %S of device '%S': %S", Text(StorableText(batch.info.name)),
                                     Text(batch.info.key.device), Text(batch.reason));
            break;
        case Outcome::kLater:
        case Outcome::kOpen:
            ++state_.putOff;
            Complain("Put off " + batch.info.name + " of device '" + batch.info.key.device +
                     "': " + batch.reason);
            break;
    }
}

void Collector::SendReceipts(const std::vector<Incoming>& batches) {
    std::map<std::string, std::vector<ReceiptLine>> receipts;
    for (const Incoming& batch : batches) {
        const BatchKey& key = batch.info.key;
        if (batch.outcome == Outcome::kRejected && !key.device.empty()) {
            receipts[key.device].push_back({BatchFate::kRejected, key.digest, batch.reason});
        } else if (batch.outcome == Outcome::kStored || batch.outcome == Outcome::kDuplicate) {
            receipts[key.device].push_back({BatchFate::kHeld, key.digest, {}});
        }
    }
    for (const auto& [device, lines] : receipts) {
        for (std::size_t first = 0; first < lines.size(); first += kMaxReceiptLines) {
            const std::size_t last = std::min(first + kMaxReceiptLines, lines.size());
            const std::vector<ReceiptLine> part(lines.begin() + static_cast<std::ptrdiff_t>(first),
                                                lines.begin() + static_cast<std::ptrdiff_t>(last));
            std::string error;
            if (!broker_.Publish(ReceiptSubject(device), "", {}, ReceiptText(part), error)) {
                LoseBroker(error);  // the devices will ask
                return;
            }
        }
    }
}

void Collector::AnswerQuestions() {
    std::optional<BrokerMessage> question;
    for (int answered = 0; answered < kQuestionsAtOnce; ++answered) {
        if (broker_.Receive(0, question) != ReceiveResult::kMessage) {
            return;
        }
        if (std::string error; !Answer(*question, error)) {
            LoseBroker(error);
            return;
        }
    }
}

bool Collector::Answer(const BrokerMessage& question, std::string& error) {
    const std::string device = DeviceOfAsk(question.Subject());
    std::vector<AskLine> lines;
    if (device.empty() || !ParseAsk(question.Data(), lines)) {
        return true;  // it was not a question
    }
    // The stream is asked first: every batch that it counts as stored by then is in the database, or was lost
    // there.
    StreamState stream;
    if (!ReadStreamState(broker_, settings_.stream.name, settings_.stream.consumer, stream, error)) {
        return false;
    }
    const std::map<std::string, ReceiptLine> answers = store_.LookUp(device, lines);
    std::vector<ReceiptLine> receipt;
    for (const AskLine& line : lines) {
        const auto found = answers.find(line.digest);
        if (found != answers.end()) {
            receipt.push_back(found->second);
            continue;
        }
        const bool onItsWay = line.sequence > stream.doneSequence && line.sequence >= stream.firstSequence &&
                              line.sequence <= stream.lastSequence;
        receipt.push_back({onItsWay ? BatchFate::kWaiting : BatchFate::kMissing, line.digest, {}});
    }
    const bool isSent = broker_.Publish(ReceiptSubject(device), "", {}, ReceiptText(receipt), error);
    state_.answers += isSent ? 1 : 0;
    return isSent;
}

void Collector::Maintain() {
    const int64_t now = SteadyMs();
    if (now < maintainAtMs_ || !database_.IsOpen() || !broker_.IsConnected()) {
        return;
    }
    maintainAtMs_ = now + kMaintainMs;
    try {
        store_.GetTables().MakeAhead(database_);
        if (settings_.keepMonths > 0) {
            store_.GetTables().DropOld(database_, settings_.keepMonths);
        }
    } catch (const SqlError& error) {
        Complain("Maintenance: " + std::string(error.what()));
    }
}

void Collector::LookAtStream() {
    const int64_t now = SteadyMs();
    if (now < lookAtMs_ || !broker_.IsConnected()) {
        return;
    }
    lookAtMs_ = now + kLookMs;
    StreamState stream;
    std::string error;
    // A stream that was deleted gives nothing, and no failure either.
    if (!ReadStreamState(broker_, settings_.stream.name, settings_.stream.consumer, stream, error)) {
        LoseBroker(error);
        return;
    }
    state_.pending = stream.pending;
}

void Collector::LoseDatabase(const std::string& reason) {
    Complain("Database: " + reason);
    state_.databaseConnected = false;
    database_.Close();
    // Where each connection fails at once, the next one waits, so that they do not become a storm.
    StopSignal::Wait(databaseRetry_.Next());
}

void Collector::LoseBroker(const std::string& reason) {
    if (!reason.empty()) {
        Complain("Broker: " + reason);
    }
    state_.brokerConnected = false;
    ReturnFetched();
    reader_.Close();
    broker_.Close();
}
