#include "fleet/forward/Forwarder.h"

#include <ctime>

#include <sys/stat.h>

#include "fleet/forward/BrokerAnswer.h"
#include "fleet/service/SteadyClock.h"
#include "fleet/service/StopSignal.h"
#include "fleet/wire/BatchHeaders.h"
#include "fleet/wire/Subjects.h"
#include "host/file/LumFile.h"
#include "host/log/LumDebug.h"

namespace {

LumDebug ForwardDebug("lumforward", "Forwarder of the outbox");

constexpr int32_t kInboxBytes = 2'000'000;
constexpr std::size_t kWindowBytes = 8'000'000;
constexpr std::size_t kNamesAtOnce = 4096;
constexpr std::size_t kMessagesAtOnce = 128;
constexpr std::size_t kMaxStaying = 4096;
constexpr int64_t kIdleMs = 250;
constexpr int64_t kAcknowledgeWithinMs = 30'000;
constexpr int64_t kRescanMs = 30'000;
constexpr int64_t kReportMs = 5'000;
constexpr int64_t kFirstReportMs = 1'000;
constexpr int64_t kReportPart = 50;
/// The stream's own limit of a message is lower than the broker's.
constexpr int64_t kMessageTooLarge = 10'054;

LumString Text(const std::string& text) {
    return LumString(std::string_view(text));
}

}  // namespace

Forwarder::Forwarder(const ForwardSettings& settings, ForwardState& state)
    : settings_(settings),
      state_(state),
      outbox_(settings.outbox),
      reader_(outbox_),
      broker_(BrokerThreads::kNone),
      reconnect_(settings.retryFirstMs, settings.retryLastMs, RandomSeed()),
      refused_(settings.retryFirstMs, settings.retryLastMs, RandomSeed()) {}

void Forwarder::Run() {
    while (!StopSignal::IsSet()) {
        if (broker_.IsConnected() || Connect()) {
            Work();
        } else {
            ReportState();
            StopSignal::Wait(reconnect_.Next());
        }
    }
    // What the broker has is safe there; what it has not is found again in the outbox.
    static_cast<void>(broker_.Flush(1'000));
    broker_.Close();
    reportNotBeforeMs_ = 0;
    state_.connected = false;
    ReportState();
}

bool Forwarder::Connect() {
    std::string error;
    if (!broker_.Connect(settings_.broker, error) ||
        !broker_.Subscribe(DeviceInbox(settings_.device), "", kInboxBytes, error)) {
        Complain(error);
        broker_.Close();
        return false;
    }
    ForwardDebug.PrintWithNL("Connected to the broker as device %S", Text(settings_.device));
    lastError_.clear();
    state_.connected = true;
    ++state_.connects;
    StartPass();
    // Sending comes first: counting a large backlog takes a while.
    reportNotBeforeMs_ = std::max(reportNotBeforeMs_, SteadyMs() + kFirstReportMs);
    return true;
}

void Forwarder::StartPass() {
    passDone_ = false;
    cursor_.clear();
    reader_.Start({}, 0);
}

void Forwarder::Disconnect(const std::string& reason) {
    Complain(reason);
    broker_.Close();
    state_.connected = false;
    ledger_.ForgetUnacknowledged();
    // A broker that accepts a connection and then drops it must not be asked again at once either.
    StopSignal::Wait(reconnect_.Next());
}

void Forwarder::Complain(const std::string& reason) {
    // One line for an outage, however long it lasts.
    if (reason != lastError_) {
        ForwardDebug.WarningWithNL("%S", Text(reason));
        lastError_ = reason;
    }
}

void Forwarder::Work() {
    PublishWhatFits();
    const bool busy = HasRoom() && !reader_.IsEmpty();
    TakeMessages(busy ? 0 : kIdleMs);
    if (!broker_.IsConnected()) {
        return;
    }
    const int64_t now = SteadyMs();
    if (ledger_.ForgetUnacknowledgedBefore(now - kAcknowledgeWithinMs) > 0) {
        StartPass();
        Complain("The broker does not acknowledge what is sent to it");
    }
    AskForReceipts();
    ReportState();
}

void Forwarder::TakeMessages(int64_t timeoutMs) {
    // The client library frees messages on a thread of its own, which is woken once for all of these.
    std::vector<BrokerMessage> acknowledgements;
    std::optional<BrokerMessage> message;
    for (int64_t wait = timeoutMs; acknowledgements.size() < kMessagesAtOnce; wait = 0) {
        const ReceiveResult result = broker_.Receive(wait, message);
        if (result == ReceiveResult::kDisconnected) {
            Disconnect("The connection to the broker is lost");
            return;
        }
        if (result == ReceiveResult::kNothing) {
            return;
        }
        if (result == ReceiveResult::kUnheard) {
            // The broker does not say which batch it means; where there is no stream, none of them was taken.
            ledger_.ForgetUnacknowledged();
            HoldBack("no stream takes it");
            continue;
        }
        reconnect_.Reset();
        uint64_t number = 0;
        if (ParseAckSubject(message->Subject(), number)) {
            TakeAcknowledgement(number, message->Data());
            acknowledgements.push_back(std::move(*message));
        } else {
            TakeReceipt(message->Data());
        }
    }
}

void Forwarder::TakeAcknowledgement(uint64_t number, std::string_view data) {
    const BrokerAnswer answer = ReadBrokerAnswer(data);
    if (!answer.sequence.has_value()) {
        Refused(number, answer.reason, answer.code);
        return;
    }
    const int64_t askAfterMs = settings_.askAfterSeconds * 1'000;
    ledger_.Acknowledge(number, *answer.sequence, SteadyMs() + askAfterMs);
    ++state_.acknowledged;
    if (!state_.brokerTakes.exchange(true)) {
        ForwardDebug.PrintWithNL("The broker takes batches again");
        lastError_.clear();
    }
    refused_.Reset();
}

void Forwarder::Refused(uint64_t number, const std::string& reason, int64_t code) {
    const std::string name = ledger_.Refuse(number);
    if (name.empty()) {
        return;
    }
    if (code == kMessageTooLarge) {
        SetAside(name, name + ": it is larger than the stream takes");
        return;
    }
    HoldBack(reason);
}

void Forwarder::HoldBack(const std::string& reason) {
    Complain("The broker refuses a batch: " + reason);
    state_.brokerTakes = false;
    // Every batch that is under way will be refused likewise: one wait serves them all.
    if (publishNotBeforeMs_ <= SteadyMs()) {
        publishNotBeforeMs_ = SteadyMs() + refused_.Next();
    }
    StartPass();
}

void Forwarder::TakeReceipt(std::string_view data) {
    std::vector<ReceiptLine> lines;
    if (!ParseReceipt(data, lines)) {
        Complain("A message came that is not a receipt");
        return;
    }
    state_.lastReceipt = std::time(nullptr);
    for (const ReceiptLine& line : lines) {
        Settle(line);
    }
}

void Forwarder::Settle(const ReceiptLine& line) {
    for (const std::string& name : ledger_.NamesOf(line.digest)) {
        switch (line.fate) {
            case BatchFate::kHeld:
                Confirm(name);
                break;
            case BatchFate::kRejected:
                ledger_.Forget(name);
                SetAside(name, name + ": refused, " + line.reason);
                break;
            case BatchFate::kMissing:
                ledger_.Forget(name);
                StartPass();
                break;
            case BatchFate::kWaiting:
                break;
        }
    }
}

void Forwarder::Confirm(const std::string& name) {
    std::string error;
    if (!outbox_.Remove(name, error)) {
        // It stays in the ledger, so the next answer tries again.
        Complain(error);
        return;
    }
    ledger_.Forget(name);
    ++state_.confirmed;
}

void Forwarder::SetAside(const std::string& name, const std::string& reason) {
    std::string error;
    if (!outbox_.SetAside(name, error)) {
        Complain(error);
        return;
    }
    ++state_.setAside;
    ForwardDebug.WarningWithNL("Set aside in %s: %S", OutboxDirectory::kSetAside, Text(reason));
}

bool Forwarder::HasRoom() const {
    return ledger_.CountUnacknowledged() < static_cast<std::size_t>(settings_.window) &&
           ledger_.UnacknowledgedBytes() < kWindowBytes &&
           ledger_.CountAll() < static_cast<std::size_t>(settings_.maxUnconfirmed) &&
           SteadyMs() >= publishNotBeforeMs_;
}

void Forwarder::PublishWhatFits() {
    while (HasRoom()) {
        ReadEntry* const read = NextEntry();
        if (read == nullptr || !PublishEntry(*read)) {
            return;
        }
        if (!reader_.IsReady()) {
            return;  // until the next one is read, there is time for what has come
        }
    }
}

ReadEntry* Forwarder::NextEntry() {
    if (reader_.IsEmpty()) {
        ReadNextNames();
    }
    return reader_.Next();
}

void Forwarder::ReadNextNames() {
    const int64_t stamp = outbox_.ChangeStamp();
    const int64_t now = SteadyMs();
    if (passDone_) {
        // Nothing new, and nothing that could not be read a while ago.
        if (stamp == passStamp_ && now < rescanNotBeforeMs_) {
            return;
        }
        passDone_ = false;
        cursor_.clear();
    }
    if (cursor_.empty()) {
        passStamp_ = stamp;
        rescanNotBeforeMs_ = now + kRescanMs;
    }
    // The ledger knows contents by their name, which only the description tells for certain; the usual one is
    // good enough to keep what is under way from being read again and again.
    std::string usual;
    const auto isWanted = [this, &usual](std::string_view description) {
        usual.assign(description.substr(0, description.rfind('.'))).append(".cbor");
        return !ledger_.Holds(usual) && staying_.count(description) == 0;
    };
    std::vector<std::string> names;
    std::string error;
    if (!outbox_.NextDescriptions(cursor_, kNamesAtOnce, isWanted, names, error)) {
        state_.outboxReadable = false;
        Complain(error);
        passDone_ = true;
        return;
    }
    state_.outboxReadable = true;
    passDone_ = names.size() < kNamesAtOnce;
    if (!names.empty()) {
        cursor_ = names.back();
    }
    reader_.Start(std::move(names), broker_.MaxPayload());
}

bool Forwarder::PublishEntry(ReadEntry& read) {
    switch (read.result) {
        case LoadResult::kReady:
            break;
        case LoadResult::kGone:
            return true;
        case LoadResult::kStays:
            if (staying_.size() < kMaxStaying) {
                staying_.insert(read.description);
            }
            return true;
        case LoadResult::kBad:
            SetAside(read.description, read.reason);
            return true;
        case LoadResult::kUnreadable:
            Complain(read.reason);
            return true;
    }
    if (!ledger_.Holds(read.entry.name)) {
        Send(read.entry);
    }
    return broker_.IsConnected();
}

void Forwarder::Send(OutboxEntry& entry) {
    const uint64_t number = nextNumber_++;
    BatchInfo batch;
    batch.key = {settings_.device, std::move(entry.digest)};
    ledger_.Add(entry.name, batch.key.digest, entry.content.size(), number, SteadyMs());
    if (entry.label != label_) {
        label_ = entry.label;
        subject_ = BatchSubject(settings_.device, entry.label);
    }
    batch.name = std::move(entry.name);
    batch.label = std::move(entry.label);
    batch.receivedAt = std::move(entry.receivedAt);
    std::string error;
    if (!broker_.Publish(subject_, AckSubject(settings_.device, number), MakeHeaders(batch), entry.content,
                         error)) {
        Disconnect(error);
        return;
    }
    ++state_.published;
    state_.publishedBytes += entry.content.size();
}

void Forwarder::AskForReceipts() {
    const int64_t now = SteadyMs();
    if (now < askNotBeforeMs_) {
        return;
    }
    askNotBeforeMs_ = now + 1'000;
    const int64_t again = now + settings_.askAfterSeconds * 1'000;
    const std::vector<AskLine> questions = ledger_.TakeQuestions(now, again);
    std::string error;
    if (!questions.empty() &&
        !broker_.Publish(AskSubject(settings_.device), "", {}, AskText(questions), error)) {
        Disconnect(error);
    }
}

void Forwarder::ReportState() {
    state_.unconfirmed = ledger_.CountAll();
    state_.underWay = ledger_.CountUnacknowledged();
    const int64_t now = SteadyMs();
    if (now < reportNotBeforeMs_) {
        return;
    }
    reportNotBeforeMs_ = now + kReportMs;
    OutboxSize size;
    std::string error;
    state_.outboxReadable = outbox_.Measure(size, error);
    if (!state_.outboxReadable) {
        Complain(error);
        return;
    }
    state_.waiting = size.entries;
    state_.waitingBytes = size.bytes;
    state_.oldest = size.oldest;
    // Counting a large backlog takes a while: it gets a small part of the time.
    reportNotBeforeMs_ = now + std::max(kReportMs, (SteadyMs() - now) * kReportPart);
    LumString reason;
    const std::string text = ForwardStateJson(state_, settings_.device, lastError_, std::time(nullptr));
    if (!FileReplace(Text(settings_.stateFile), text, reason)) {
        Complain(settings_.stateFile + ": " + std::string(reason.View()));
        return;
    }
    // The agent, which may be another user, shows it; who may look into its directory stays as it is.
    static_cast<void>(::chmod(settings_.stateFile.c_str(), S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH));
}
