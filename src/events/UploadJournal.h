#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "events/Period.h"
#include "host/text/LumString.h"

/// Which events of a window are to be sent, once they were read for the first time: those that came later
/// into a window that is being sent would move the borders of its files.
struct UploadExtent {
    uint32_t events;
    int64_t lastId;  ///< no E_Id is above it

    friend bool operator==(const UploadExtent&, const UploadExtent&) = default;
};

/// What of one model is on its way to the file store: the windows whose events have to be handed over, oldest
/// first, and how far the first of them has come. A file beside the models says the same, so that whoever
/// comes after a kill can go on (docs/file-formats.md describes it); the object is ahead of its file only
/// where that could not be written. Belongs to one thread at a time.
class UploadJournal {
public:
    enum class Found : uint8_t {
        kNothing,     ///< there is none
        kRead,        ///< it is there
        kUnreadable,  ///< it cannot be read at the moment
        kDamaged,     ///< it cannot be understood, and was set aside
    };

    explicit UploadJournal(const LumString& model) : model_(model) {}

    /// Takes over what the file says; `error` is the reason of the last two answers.
    [[nodiscard]] Found Load(LumString& error);

    [[nodiscard]] const LumString& GetModel() const { return model_; }
    [[nodiscard]] bool IsEmpty() const { return windows_.empty(); }
    [[nodiscard]] const std::vector<EventWindow>& GetWindows() const { return windows_; }
    [[nodiscard]] const EventWindow& GetFirst() const { return windows_.front(); }
    [[nodiscard]] const std::optional<UploadExtent>& GetExtent() const { return extent_; }
    /// How many events of the first window the file store has.
    [[nodiscard]] uint32_t GetHandedOver() const { return handedOver_; }

    /// Each changes the object and then the file; false, with the reason in `error`, where the file could not
    /// be written. Then Store writes what is missing, and nothing may be handed over before it has.
    [[nodiscard]] bool Append(EventWindow window, LumString& error);
    [[nodiscard]] bool SetExtent(const UploadExtent& extent, LumString& error);
    /// Durable before the next file may be handed over.
    [[nodiscard]] bool AddHandedOver(uint32_t events, LumString& error);
    [[nodiscard]] bool FinishFirst(LumString& error);
    /// Forgets of the windows what is not before `mark`, the model's own: it is not marked as uploaded, so
    /// that nothing of it was sent.
    [[nodiscard]] bool ForgetAfter(LumSeconds mark, LumString& error);
    [[nodiscard]] bool Store(LumString& error);

private:
    [[nodiscard]] bool Parse(std::string_view text);
    [[nodiscard]] std::string Head() const;
    /// Replaces the file, or deletes it where nothing is left.
    [[nodiscard]] bool Rewrite(LumString& error);
    /// Overwrites the numbers at its beginning, which always take the same room. `sync`: before it returns.
    [[nodiscard]] bool Overwrite(bool sync, LumString& error);

    LumString model_;
    std::vector<EventWindow> windows_;
    std::optional<UploadExtent> extent_;
    uint32_t handedOver_ = 0;
    bool isStored_ = true;
};

/// The names of the models that have a journal; false where that cannot be looked up at the moment. Clears
/// away what a cut-off write left, so nothing may be written meanwhile.
[[nodiscard]] bool ListUploadJournals(std::vector<LumString>& models);
