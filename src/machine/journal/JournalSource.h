#pragma once

#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/text/LumString.h"
#include "machine/journal/JournalReader.h"
#include "machine/source/Source.h"

/// What all sources that read the systemd journal have in common: the position is the cursor of the last
/// entry that was looked at, and after a line end what the source itself wants to remember.
class JournalSource : public Source {
public:
    /// `directory` is empty for the system's journal; entries of before `oldest` are left out.
    JournalSource(const LumString& directory, std::time_t oldest) : directory_(directory), oldest_(oldest) {}

    [[nodiscard]] bool Open(LumString& error) override;
    [[nodiscard]] bool ReadSince(const std::string& position, std::size_t limit, SourceBatch& batch,
                                 LumString& error) override;
    [[nodiscard]] int GetDescriptor() const override;
    [[nodiscard]] uint32_t GetWaitMs() const override;

protected:
    /// Which entries are looked at. Matching is for speed alone: what an entry is worth, Judge decides.
    [[nodiscard]] virtual JournalReader::Matches GetMatches() const = 0;
    /// The fields that Judge looks at.
    [[nodiscard]] virtual const std::vector<std::string_view>& GetFields() const = 0;
    /// Makes an event of the entry, without its time and record; false where it is none, above all where the
    /// journal says that the entry is not from whom it claims to be from.
    [[nodiscard]] virtual bool Judge(const JournalEntry& entry, MachineEvent& event) = 0;
    /// What Judge remembers from entry to entry, as one line.
    [[nodiscard]] virtual std::string GetMemory() const { return {}; }
    virtual void SetMemory(const std::string& /*memory*/) {}

private:
    [[nodiscard]] bool EnsurePlace(const std::string& position, LumString& error);

    const LumString directory_;
    const std::time_t oldest_;

    std::unique_ptr<JournalReader> reader_;
    bool isPlaced_ = false;
    bool hasMore_ = false;  ///< the last turn ended before the end of the journal
    std::string position_;
};
