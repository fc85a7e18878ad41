#pragma once

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "machine/journal/JournalFrame.h"
#include "machine/reader/JournalReader.h"

/// What the program is asked for on its command line:
/// DIRECTORY OLDEST FIELD[,FIELD...] MATCH... [+ MATCH...]...
struct JournalQuestion {
    std::string directory;   ///< empty for the system's journal
    std::time_t oldest = 0;  ///< entries of before are left out
    std::vector<std::string_view> fields;
    JournalReader::Matches matches;

    /// `words` live as long as the question does. False where they are not a question.
    [[nodiscard]] bool Read(const std::vector<std::string_view>& words);
};

/// Tells the entries of the journal to whoever is at the other end of a socket
/// (machine/journal/JournalFrame.h) until that end is closed: those that are there, and every further one as
/// it comes. Waits as long as the other end does not take what is told.
class JournalTeller {
public:
    JournalTeller(const JournalQuestion& question, int peer) : question_(question), peer_(peer) {}

    /// Opens the journal, reads the line with the cursor from the peer, and tells. Returns once the peer has
    /// gone, or after it was told why nothing can be read.
    void Run();

private:
    /// Tells what there is; false where that comes to an end.
    [[nodiscard]] bool TellAll();
    [[nodiscard]] bool Open();
    /// Goes on after cursor_.
    [[nodiscard]] bool Seek();
    [[nodiscard]] bool ReadCursor();
    [[nodiscard]] bool Tell(JournalSaying saying, std::string_view text = {}) const;
    /// Says once that there is no more; what has changed may be of no concern.
    [[nodiscard]] bool TellEnd();
    [[nodiscard]] bool TellDamaged();
    [[nodiscard]] bool Send(std::string_view bytes) const;
    void Fail(const std::string& error) const;

    const JournalQuestion& question_;
    const int peer_;

    JournalReader reader_;
    std::string cursor_;  ///< of the last entry that was told
    bool hasToldEnd_ = false;
};
