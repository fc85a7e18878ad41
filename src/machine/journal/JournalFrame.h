#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "machine/journal/JournalEntry.h"

/// What the program that reads the journal says to the module, in frames: the kind (a byte), the number of
/// bytes that follow (32 bits, the lowest byte first), and texts, each with its length before it.

enum class JournalSaying : char {
    kOpened = 'O',    ///< the journal is there, and the cursor to go on after may be written
    kEntry = 'E',     ///< an entry
    kGap = 'G',       ///< the entry at the cursor has gone; a text: how many after it, empty where unknown
    kNoCursor = 'N',  ///< what was written is not a cursor; what follows begins at the oldest that is wanted
    kDamaged = 'D',   ///< a text: how many entries could not be read and were passed over
    kEnd = 'C',       ///< all that there is has been said; what is new follows once it is there
    kFailed = 'F',    ///< a text: why the program ends
};

/// The status with which the program ends where a file is cut while it is read.
inline constexpr int kJournalCutStatus = 3;

struct JournalFrame {
    JournalSaying saying = JournalSaying::kEnd;
    std::vector<std::string_view> texts;  ///< valid until the buffer is used again

    [[nodiscard]] std::string_view GetText() const {
        return texts.empty() ? std::string_view() : texts.front();
    }
    /// False where the frame does not hold an entry as MakeEntryFrame writes it.
    [[nodiscard]] bool ReadEntry(JournalEntry& entry) const;
};

[[nodiscard]] std::string MakeFrame(JournalSaying saying, const std::vector<std::string_view>& texts = {});
[[nodiscard]] std::string MakeEntryFrame(const JournalEntry& entry);

/// Cuts frames out of the bytes that have come. The program deals with whatever anybody has put into the
/// journal, so its word is not relied on: what is not a frame is refused.
class JournalFrameBuffer {
public:
    /// A frame of more bytes is refused: an entry has less than 20 fields of at most
    /// JournalEntry::kMaxValueBytes.
    static constexpr std::size_t kMaxFrameBytes = std::size_t{1} << 18U;

    enum class Cut : uint8_t { kFrame, kIncomplete, kRefused };

    void Append(std::string_view bytes);
    [[nodiscard]] Cut Next(JournalFrame& frame);

private:
    std::string bytes_;
    std::size_t used_ = 0;
};
