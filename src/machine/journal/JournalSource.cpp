#include "machine/journal/JournalSource.h"

#include <algorithm>
#include <utility>

#include "machine/source/FieldText.h"
#include "machine/source/MachineLog.h"
#include "machine/source/RecordId.h"

namespace {

/// A turn ends after so many frames, whatever they say.
constexpr std::size_t kMaxFramesATurn = 1000;
/// Whoever reads the journal says so where there is something new; this is for the case that it cannot.
constexpr uint32_t kLookMs = 86'400'000;
/// A text of more bytes is not a cursor.
constexpr std::size_t kMaxCursorBytes = 1000;

}  // namespace

bool JournalSource::Open(LumString& error) {
    isAsked_ = false;
    isAtEnd_ = false;
    process_ = std::make_unique<JournalProcess>();
    return process_->Start(ReaderCommand(), error);
}

std::vector<std::string> JournalSource::ReaderCommand() const {
    std::string fields;
    for (const std::string_view field : GetFields()) {
        fields += (fields.empty() ? "" : ",") + std::string(field);
    }
    std::vector<std::string> words = {place_.reader.GetString(), place_.directory.GetString(),
                                      std::to_string(oldest_), fields};
    const char* separator = nullptr;
    for (const std::vector<std::string>& group : GetMatches()) {
        if (separator != nullptr) {
            words.emplace_back(separator);
        }
        separator = "+";
        words.insert(words.end(), group.begin(), group.end());
    }
    return words;
}

int JournalSource::GetDescriptor() const {
    return process_ != nullptr ? process_->GetDescriptor() : -1;
}

uint32_t JournalSource::GetWaitMs() const {
    return kLookMs;
}

bool JournalSource::ReadSince(const std::string& position, std::size_t limit, SourceBatch& batch,
                              LumString& error) {
    if (process_ == nullptr || !EnsurePlace(position, error)) {
        return false;
    }
    using Heard = JournalProcess::Heard;
    std::string cursor = position.substr(0, position.find('\n'));
    JournalFrame frame;
    Heard heard = Heard::kFrame;
    std::size_t frames = 0;
    for (; batch.events.size() < limit && frames < kMaxFramesATurn; ++frames) {
        heard = process_->Hear(frame, error);
        if (heard != Heard::kFrame) {
            break;
        }
        TakeFrame(frame, cursor, batch);
    }
    if (heard == Heard::kEnded && frames == 0) {
        return false;
    }
    batch.more = heard != Heard::kNothing;
    batch.awaitsMore = heard == Heard::kNothing && !isAtEnd_;
    const std::string memory = GetMemory();
    batch.position = memory.empty() ? cursor : cursor + "\n" + memory;
    position_ = batch.position;
    return true;
}

void JournalSource::TakeFrame(const JournalFrame& frame, std::string& cursor, SourceBatch& batch) {
    const std::string text(frame.GetText());
    isAtEnd_ = frame.saying == JournalSaying::kEnd;
    switch (frame.saying) {
        case JournalSaying::kEntry:
            TakeEntry(frame, cursor, batch);
            break;
        case JournalSaying::kNoCursor:
            MachineDebug.PrintWithNL(
                "%s: the position is not one of a journal, which is compared with the events "
                "from its beginning",
                GetName());
            batch.begunAnew = true;
            break;
        case JournalSaying::kGap:
            if (text.empty()) {
                MachineDebug.PrintWithNL(
                    "%s: the journal no longer holds the entry that was read last; entries "
                    "after it may be gone with it",
                    GetName());
            } else if (text != "0") {
                MachineDebug.WarningWithNL(
                    "%s: the journal has removed %s entries before they were looked at", GetName(),
                    text.c_str());
            }
            break;
        case JournalSaying::kDamaged:
            MachineDebug.WarningWithNL("%s: %s damaged entries of the journal are left out", GetName(),
                                       text.c_str());
            break;
        case JournalSaying::kOpened:
        case JournalSaying::kEnd:
        case JournalSaying::kFailed:
            break;
    }
}

void JournalSource::TakeEntry(const JournalFrame& frame, std::string& cursor, SourceBatch& batch) {
    JournalEntry entry;
    if (!frame.ReadEntry(entry)) {
        return;
    }
    MachineEvent event;
    if (Judge(entry, event)) {
        SetIdentity(event, RecordId(entry.Identity()), FieldTime(entry.time, std::time(nullptr)));
        batch.events.push_back(std::move(event));
    }
    cursor = std::move(entry.cursor);
}

bool JournalSource::EnsurePlace(const std::string& position, LumString& error) {
    if (isAsked_ && position == position_) {
        return true;
    }
    // What is on its way belongs to another position.
    if (isAsked_ && !Open(error)) {
        return false;
    }
    const std::size_t end = position.find('\n');
    if (!process_->AskAfter(position.substr(0, std::min(end, kMaxCursorBytes)), error)) {
        return false;
    }
    SetMemory(end == std::string::npos ? std::string() : position.substr(end + 1));
    position_ = position;
    isAsked_ = true;
    return true;
}
