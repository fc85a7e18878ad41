#pragma once

#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/text/LumString.h"
#include "machine/journal/JournalEntry.h"
#include "machine/journal/JournalProcess.h"
#include "machine/source/Source.h"

/// Where the journal is, and what reads it.
struct JournalPlace {
    LumString directory;  ///< empty for the system's own
    LumString reader;     ///< the path of the program
};

/// What all sources that read the systemd journal have in common: the position is the cursor of the last
/// entry that was looked at, and after a line end what the source itself wants to remember.
class JournalSource : public Source {
public:
    /// Entries of before `oldest` are left out.
    JournalSource(const JournalPlace& place, std::time_t oldest) : place_(place), oldest_(oldest) {}

    [[nodiscard]] bool Open(LumString& error) override;
    [[nodiscard]] bool ReadSince(const std::string& position, std::size_t limit, SourceBatch& batch,
                                 LumString& error) override;
    [[nodiscard]] int GetDescriptor() const override;
    [[nodiscard]] uint32_t GetWaitMs() const override;

    /// The process that reads the journal; -1 where there is none.
    [[nodiscard]] pid_t GetReaderId() const { return process_ != nullptr ? process_->GetId() : -1; }

protected:
    /// "FIELD=value" texts: those of one group that name different fields must all hold, of those that name
    /// the same field one; an entry matches where one of the groups does.
    using Matches = std::vector<std::vector<std::string>>;

    /// Which entries are looked at. This only saves time: Judge decides about each entry.
    [[nodiscard]] virtual Matches GetMatches() const = 0;
    /// The fields that Judge looks at.
    [[nodiscard]] virtual const std::vector<std::string_view>& GetFields() const = 0;
    /// Makes an event of the entry, without its time and record; false where it does not make one, above
    /// all where the journal says that somebody else has written it than it claims.
    [[nodiscard]] virtual bool Judge(const JournalEntry& entry, MachineEvent& event) = 0;
    /// What Judge remembers from entry to entry, as one line.
    [[nodiscard]] virtual std::string GetMemory() const { return {}; }
    virtual void SetMemory(const std::string& /*memory*/) {}

private:
    [[nodiscard]] std::vector<std::string> ReaderCommand() const;
    [[nodiscard]] bool EnsurePlace(const std::string& position, LumString& error);
    void TakeFrame(const JournalFrame& frame, std::string& cursor, SourceBatch& batch);
    void TakeEntry(const JournalFrame& frame, std::string& cursor, SourceBatch& batch);

    const JournalPlace place_;
    const std::time_t oldest_;

    std::unique_ptr<JournalProcess> process_;
    bool isAsked_ = false;  ///< the process tells what comes after position_
    bool isAtEnd_ = false;  ///< it has told all that there is
    std::string position_;
};
