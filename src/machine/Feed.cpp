#include "machine/Feed.h"

#include <algorithm>
#include <exception>
#include <string_view>
#include <utility>

#include "host/database/Database.h"
#include "machine/source/MachineLog.h"
#include "machine/source/RecordId.h"

namespace {

/// A turn is short, so that a source with a long backlog does not keep the others from being heard.
constexpr std::size_t kBatchEvents = 50;
/// How many of the last events of a model are looked through for those of an interrupted batch: enough for
/// what others stored in between.
constexpr uint32_t kRecentEvents = 2000;
/// The position is written after so many events of a backlog: far fewer than kRecentEvents.
constexpr std::size_t kMostUnsaved = 500;
constexpr std::chrono::seconds kLongestUnsaved{1};
constexpr uint32_t kAllEvents = 1'000'000;

/// Stands before the position in the file while comparesAll_ is true.
constexpr char kComparesAll = '!';

constexpr uint32_t kStoreRetryMs = 5000;
constexpr uint32_t kModelsRetryMs = 300'000;

}  // namespace

Feed::Feed(std::unique_ptr<Source> source, const LumString& positionPath, uint32_t retryMs)
    : source_(std::move(source)), retryMs_(retryMs), file_(positionPath), due_(Clock::now()) {}

int Feed::GetDescriptor() const {
    return isOpen_ && !isResting_ ? source_->GetDescriptor() : -1;
}

bool Feed::Work(const std::function<bool()>& isStopping) {
    try {
        return TakeTurn(isStopping);
    } catch (const std::exception& exception) {
        // How far the source has read, and what of it is stored, is not known any more.
        isOpen_ = false;
        hasAskedStore_ = false;
        models_.clear();
        Rest(retryMs_, exception.what());
        return false;
    }
}

bool Feed::TakeTurn(const std::function<bool()>& isStopping) {
    isResting_ = false;
    if (!EnsureModels() || !EnsureOpen() || !EnsurePosition()) {
        return false;
    }
    SourceBatch batch;
    LumString error;
    if (!source_->ReadSince(position_, kBatchEvents, batch, error)) {
        isOpen_ = false;
        Rest(retryMs_, error);
        return false;
    }
    if (batch.begunAnew) {
        comparesAll_ = true;
        if (!LearnRecords()) {
            return false;
        }
    }
    if (!StoreBatch(batch, isStopping)) {
        return false;
    }
    Advance(batch);
    return batch.more;
}

void Feed::Advance(const SourceBatch& batch) {
    const bool isCaughtUp = !batch.more && !batch.awaitsMore;
    const bool endsComparison = comparesAll_ && isCaughtUp;
    comparesAll_ = comparesAll_ && !isCaughtUp;
    unsaved_ += batch.position != position_ ? std::max<std::size_t>(batch.events.size(), 1) : 0;
    position_ = batch.position;
    const bool isDue = isCaughtUp || unsaved_ >= kMostUnsaved || Clock::now() - saved_ >= kLongestUnsaved;
    if (endsComparison || (isDue && unsaved_ > 0)) {
        SavePosition();
    }
    if (isCaughtUp) {
        known_.Clear();
    }
    if (!batch.events.empty() || isCaughtUp) {
        SayReadAgain();
    }
    if (!batch.more) {
        SetDue(source_->GetWaitMs());
    }
}

bool Feed::EnsureModels() {
    if (!models_.empty()) {
        return true;
    }
    std::set<std::string> registered;
    if (!ListModels(registered)) {
        Rest(kStoreRetryMs, "the event log does not answer");
        return false;
    }
    LumString reason("none of its models is registered");
    for (const char* const model : source_->GetModels()) {
        if (!registered.contains(model)) {
            continue;
        }
        if (ListParams(model).contains(kTimeParam)) {
            models_.insert(model);
        } else {
            reason.Printf("model '%s' is another than the one that comes with the module", model);
        }
    }
    if (models_.empty()) {
        Rest(kModelsRetryMs, reason);
    }
    return !models_.empty();
}

bool Feed::EnsureOpen() {
    LumString error;
    if (!isOpen_ && !source_->Open(error)) {
        Rest(retryMs_, error);
        return false;
    }
    isOpen_ = true;
    return true;
}

void Feed::SayReadAgain() {
    if (std::exchange(hasWarned_, false)) {
        MachineDebug.PrintWithNL("%s: is read again", GetName());
    }
}

bool Feed::EnsurePosition() {
    if (!isPositionKnown_) {
        comparesAll_ = !file_.Load(position_);
        if (position_.starts_with(kComparesAll)) {
            comparesAll_ = true;
            position_.erase(0, 1);
        }
        isPositionKnown_ = true;
    }
    return hasAskedStore_ || LearnRecords();
}

void Feed::SavePosition() {
    file_.Save(comparesAll_ ? kComparesAll + position_ : position_);
    unsaved_ = 0;
    saved_ = Clock::now();
}

bool Feed::LearnRecords() {
    known_.Clear();
    hasAskedStore_ = std::all_of(models_.begin(), models_.end(), [&](const std::string& model) {
        return ReadRecords(model.c_str(), comparesAll_ ? kAllEvents : kRecentEvents, known_);
    });
    if (!hasAskedStore_) {
        Rest(kStoreRetryMs, "the event log does not say what it holds");
    }
    return hasAskedStore_;
}

bool Feed::StoreBatch(const SourceBatch& batch, const std::function<bool()>& isStopping) {
    bool isWhole = false;
    {
        // One wait for the disk serves the whole batch, so that a burst leaves it to others as well.
        const DBDurabilityDelay delay;
        isWhole = StoreEvents(batch, isStopping);
    }
    DBAwaitDurable();
    return DBTakeDurable() ? isWhole : HandleResult(StoreResult::kFailed);
}

bool Feed::StoreEvents(const SourceBatch& batch, const std::function<bool()>& isStopping) {
    return std::all_of(batch.events.begin(), batch.events.end(), [&](const MachineEvent& event) {
        if (isStopping()) {
            hasAskedStore_ = false;
            return false;
        }
        const bool isStored = event.record != 0 && known_.Contains(event.record);
        return isStored || !models_.contains(event.model) || HandleResult(StoreEvent(event));
    });
}

bool Feed::HandleResult(StoreResult result) {
    switch (result) {
        case StoreResult::kStored:
            return true;
        case StoreResult::kRefused:
            models_.clear();
            break;
        case StoreResult::kFailed:
            Rest(kStoreRetryMs, "the event log could not store an event");
            break;
    }
    // A part of the batch may be stored by now: the store has to be asked before it is read again.
    hasAskedStore_ = false;
    return false;
}

void Feed::Rest(uint32_t milliseconds, const LumString& reason) {
    isResting_ = true;
    if (!std::exchange(hasWarned_, true)) {
        MachineDebug.WarningWithNL("%s: cannot be read at the moment and is looked for again: %S", GetName(),
                                   reason);
    }
    SetDue(milliseconds);
}
