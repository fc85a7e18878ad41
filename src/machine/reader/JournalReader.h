#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "machine/journal/JournalEntry.h"

/// Reads those entries of the systemd journal that match. An object belongs to one thread at a time.
class JournalReader {
public:
    /// "FIELD=value" texts: those of one group that name different fields must all hold, of those that name
    /// the same field one; an entry matches where one of the groups does.
    using Matches = std::vector<std::vector<std::string>>;

    enum class Place : uint8_t {
        kFound,     ///< at the entry of the cursor, or nothing was asked for
        kGone,      ///< the entry of the cursor is no longer there; at the next one
        kNoCursor,  ///< the text is not a cursor; at the oldest that is wanted
    };

    /// Opens the journal in `directory`, the system's own where that is empty. False, with the reason in
    /// `error`, where there is none. What was open before is closed, and its memory given back.
    [[nodiscard]] bool Open(const std::string& directory, const Matches& matches, std::string& error);

    /// Goes on after the entry at `cursor`; where `cursor` is empty, or older than `oldest`, at the first
    /// entry of `oldest` or later.
    [[nodiscard]] Place SeekAfter(const std::string& cursor, std::time_t oldest);

    /// Reads the fields `names` of the next entry. 1, 0 at the end of what is there, -1 with `error`. Entries
    /// that cannot be read are passed over and counted.
    [[nodiscard]] int Next(const std::vector<std::string_view>& names, JournalEntry& entry,
                           std::string& error);
    /// How many entries were passed over since this was last asked.
    [[nodiscard]] std::size_t TakeDamaged();

    /// Waits until the journal may have changed, or until `peer` is closed at its other end: false then.
    [[nodiscard]] bool Wait(int peer);
    /// True where no file of the journal is left.
    [[nodiscard]] bool IsGone() const;

private:
    struct Close {
        void operator()(struct sd_journal* journal) const;
    };
    using Handle = std::unique_ptr<struct sd_journal, Close>;

    /// False, with the entry's fields half read, where the file is damaged there.
    [[nodiscard]] bool ReadEntry(const std::vector<std::string_view>& names, JournalEntry& entry) const;

    Handle journal_;
    bool isAtEntry_ = false;  ///< the next entry has been stepped to already
    std::size_t damaged_ = 0;
};

/// How many entries the journal in `directory` held after the one at `cursor` and holds no longer; nothing
/// where it does not tell. To be asked where that entry has gone.
[[nodiscard]] std::optional<uint64_t> CountRemoved(const std::string& directory, const std::string& cursor);
