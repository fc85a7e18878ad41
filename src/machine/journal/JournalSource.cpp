#include "machine/journal/JournalSource.h"

#include <utility>

#include "machine/source/FieldText.h"
#include "machine/source/MachineLog.h"
#include "machine/source/RecordId.h"

namespace {

/// A turn ends after so many entries, whatever they say.
constexpr std::size_t kMaxEntriesATurn = 1000;
/// Where the system does not tell of changes the journal is looked at this often.
constexpr uint32_t kLookMs = 300'000;

}  // namespace

bool JournalSource::Open(LumString& error) {
    isPlaced_ = false;
    hasMore_ = false;
    reader_ = std::make_unique<JournalReader>();
    return reader_->Open(directory_, GetMatches(), error);
}

int JournalSource::GetDescriptor() const {
    return reader_ != nullptr ? reader_->GetDescriptor() : -1;
}

uint32_t JournalSource::GetWaitMs() const {
    return kLookMs;
}

bool JournalSource::ReadSince(const std::string& position, std::size_t limit, SourceBatch& batch,
                              LumString& error) {
    // What the journal's files are read through stays in memory until they are closed.
    if (std::exchange(hasMore_, false) && !Open(error)) {
        return false;
    }
    reader_->ForgetNews();
    if (!EnsurePlace(position, error)) {
        return false;
    }
    const std::time_t now = std::time(nullptr);
    std::string cursor = position.substr(0, position.find('\n'));
    JournalEntry entry;
    for (std::size_t entries = 0; !batch.more; ++entries) {
        const int found = reader_->Next(GetFields(), entry, error);
        if (found < 0) {
            return false;
        }
        if (found == 0) {
            break;
        }
        MachineEvent event;
        if (Judge(entry, event)) {
            SetIdentity(event, RecordId(entry.Identity()), FieldTime(entry.time, now));
            batch.events.push_back(std::move(event));
        }
        cursor = std::move(entry.cursor);
        batch.more = batch.events.size() >= limit || entries + 1 >= kMaxEntriesATurn;
    }
    const std::string memory = GetMemory();
    batch.position = memory.empty() ? cursor : cursor + "\n" + memory;
    position_ = batch.position;
    hasMore_ = batch.more;
    return true;
}

bool JournalSource::EnsurePlace(const std::string& position, LumString& error) {
    if (isPlaced_ && position == position_) {
        return true;
    }
    const std::size_t end = position.find('\n');
    bool isThere = true;
    if (!reader_->SeekAfter(position.substr(0, end), oldest_, isThere, error)) {
        return false;
    }
    if (!isThere) {
        MachineDebug.PrintWithNL(
            "%s: the journal no longer holds the entry that was read last; entries after it "
            "may be gone with it",
            GetName());
    }
    SetMemory(end == std::string::npos ? std::string() : position.substr(end + 1));
    isPlaced_ = true;
    return true;
}
