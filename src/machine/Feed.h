#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include "host/text/LumString.h"
#include "machine/EventStore.h"
#include "machine/PositionFile.h"
#include "machine/source/Source.h"

/// Carries what a source has to say into the event log: reads a batch, leaves out what the log holds already,
/// stores the rest in order, and keeps the position after that. So a kill at any moment leaves a few
/// hundred events at most stored beyond the position, and those are found in the log by their record numbers
/// when the source is read on. An object belongs to one thread at a time.
class Feed {
public:
    using Clock = std::chrono::steady_clock;

    /// `positionPath` is the file that keeps the position. A source that is not there is left alone for
    /// `retryMs`.
    Feed(std::unique_ptr<Source> source, const LumString& positionPath, uint32_t retryMs);

    /// Does one turn: a batch of events at most. Ends early once `isStopping` answers true. True where there
    /// is more to do at once.
    bool Work(const std::function<bool()>& isStopping);

    /// What to wait for before the next turn: the descriptor, -1 for none, or the moment.
    [[nodiscard]] int GetDescriptor() const;
    [[nodiscard]] Clock::time_point GetDue() const { return due_; }
    [[nodiscard]] const char* GetName() const { return source_->GetName(); }

private:
    /// The turn, which may throw for want of memory.
    [[nodiscard]] bool TakeTurn(const std::function<bool()>& isStopping);
    [[nodiscard]] bool EnsureOpen();
    [[nodiscard]] bool EnsureModels();
    [[nodiscard]] bool EnsurePosition();
    /// Reads which records the models hold: all where comparesAll_ says so, else those that a kill may have
    /// left beyond the position.
    [[nodiscard]] bool LearnRecords();
    /// After the batch is stored: keeps its position, and says what is to be waited for.
    void Advance(const SourceBatch& batch);
    void SavePosition();
    /// False where not all of it is safe: the store has to say then what it holds.
    [[nodiscard]] bool StoreBatch(const SourceBatch& batch, const std::function<bool()>& isStopping);
    [[nodiscard]] bool StoreEvents(const SourceBatch& batch, const std::function<bool()>& isStopping);
    bool HandleResult(StoreResult result);
    /// Leaves the source alone for `milliseconds`; says why, once until it is read again.
    void Rest(uint32_t milliseconds, const LumString& reason);
    void SayReadAgain();
    void SetDue(uint32_t milliseconds) { due_ = Clock::now() + std::chrono::milliseconds(milliseconds); }

    const std::unique_ptr<Source> source_;
    const uint32_t retryMs_;
    PositionFile file_;

    std::string position_;
    bool isPositionKnown_ = false;
    bool isOpen_ = false;
    std::set<std::string> models_;  ///< those of the source's models that are registered
    RecordSet known_;
    /// True from the loss of the position until the source has been read to its end once: any of its records
    /// may then have been stored long ago. Kept with the position.
    bool comparesAll_ = false;
    bool hasAskedStore_ = false;
    bool isResting_ = false;
    bool hasWarned_ = false;
    std::size_t unsaved_ = 0;  ///< about how many events are stored beyond the position in the file
    Clock::time_point saved_;
    Clock::time_point due_;
};
