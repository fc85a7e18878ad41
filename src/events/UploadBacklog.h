#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include "events/UploadJournal.h"
#include "host/text/LumString.h"

/// What of one model waits to be handed over.
struct OutstandingUpload {
    LumString model;
    int32_t start;        ///< of the oldest window
    int32_t end;          ///< of the newest, not included
    uint32_t handedOver;  ///< events of the oldest window that the file store has
    std::optional<uint32_t>
        left;          ///< events of the oldest window that it does not have; none: not counted yet
    LumString reason;  ///< why it did not come further; empty while it is under way
};

/// The uploads that are under way, of which the processor thread alone knows more than the numbers.
class UploadBacklog_t {
public:
    /// The journal of the model, an empty one where it has none; null, with the reason in `error`, where that
    /// cannot be looked up at the moment. Stays where it is until Settle or Forget.
    [[nodiscard]] UploadJournal* Find(const LumString& model, LumString& error);

    /// True where something of the model waits to be handed over, or may: its events must not be deleted.
    [[nodiscard]] bool IsOpen(const LumString& model);

    /// Calls `visit` with each model that has a journal, those that an earlier process left included.
    void ForEach(const std::function<void(const LumString& model)>& visit);

    /// Remembers, as long as the process lives, that the model is to be uploaded up to `end` in the next
    /// cycle; true where that is new.
    bool Postpone(const LumString& model, LumSeconds end);
    /// What Postpone was told last of the model, once.
    [[nodiscard]] std::optional<LumSeconds> TakePostponed(const LumString& model);

    /// To be called after each attempt at the model's upload: gives up what is complete, and says in one
    /// error line that something is outstanding, with `reason`, when that begins; and in one line that it is
    /// complete, if it was outstanding.
    void Settle(const LumString& model, const LumString& reason);

    /// Drops the journal of a model that is gone, with one line.
    void Abandon(const LumString& model);

    /// May be called from any thread.
    [[nodiscard]] std::vector<OutstandingUpload> GetOutstanding() const;

    /// Forgets everything but the files, as the end of the process does.
    void Forget();

private:
    struct Upload {
        UploadJournal journal;
        bool isOutstanding = false;  ///< and was said to be
        LumString reason;
    };

    void Publish();

    // Used by the processor thread alone.
    std::map<LumString, Upload> uploads_;
    std::map<LumString, LumSeconds> postponed_;
    bool isListed_ = false;

    // A plain mutex: nothing else is locked or logged while it is held.
    mutable std::mutex mutex_;
    std::vector<OutstandingUpload> published_;  // guarded by mutex_
};

extern UploadBacklog_t UploadBacklog;
