#include "machine/reader/JournalTeller.h"

#include <charconv>
#include <optional>
#include <system_error>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

namespace {

/// What is read through memory maps stays in memory until the journal is closed: so many entries at most.
constexpr std::size_t kEntriesAnOpening = 200;
constexpr std::size_t kMaxCursorBytes = 4096;

/// A file that leads round in a circle is not followed for ever: the process ends by its alarm then. It runs
/// while the journal is read, and not while somebody is waited for.
constexpr unsigned kPatienceSeconds = 60;

class Patience {
public:
    Patience() { ::alarm(kPatienceSeconds); }
    Patience(const Patience&) = delete;
    Patience& operator=(const Patience&) = delete;
    ~Patience() { ::alarm(0); }
};

}  // namespace

bool JournalQuestion::Read(const std::vector<std::string_view>& words) {
    constexpr std::size_t kFixedWords = 3;
    if (words.size() <= kFixedWords) {
        return false;
    }
    directory = words[0];
    const auto [stop, failure] = std::from_chars(words[1].data(), words[1].data() + words[1].size(), oldest);
    for (std::string_view rest = words[2]; !rest.empty();) {
        const std::size_t comma = rest.find(',');
        fields.push_back(rest.substr(0, comma));
        rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
    }
    matches.emplace_back();
    for (std::size_t i = kFixedWords; i < words.size(); ++i) {
        if (words[i] == "+") {
            matches.emplace_back();
        } else {
            matches.back().emplace_back(words[i]);
        }
    }
    return failure == std::errc() && stop == words[1].data() + words[1].size();
}

void JournalTeller::Run() {
    if (!Open() || !Tell(JournalSaying::kOpened) || !ReadCursor() || !Seek()) {
        return;
    }
    while (TellAll() && TellEnd() && reader_.Wait(peer_)) {
        if (reader_.IsGone()) {
            Fail("the journal has gone");
            return;
        }
    }
}

bool JournalTeller::Seek() {
    JournalReader::Place place = JournalReader::Place::kFound;
    std::optional<uint64_t> removed;
    {
        const Patience patience;
        place = reader_.SeekAfter(cursor_, question_.oldest);
        if (place == JournalReader::Place::kGone) {
            removed = CountRemoved(question_.directory, cursor_);
        }
    }
    switch (place) {
        case JournalReader::Place::kFound:
            return true;
        case JournalReader::Place::kNoCursor:
            return Tell(JournalSaying::kNoCursor);
        case JournalReader::Place::kGone:
            break;
    }
    return Tell(JournalSaying::kGap, removed.has_value() ? std::to_string(*removed) : std::string());
}

bool JournalTeller::TellAll() {
    JournalEntry entry;
    std::string error;
    for (std::size_t entries = 1;; ++entries) {
        int found = 0;
        {
            const Patience patience;
            found = reader_.Next(question_.fields, entry, error);
        }
        if (!TellDamaged()) {
            return false;
        }
        if (found == 0) {
            return true;
        }
        if (found < 0) {
            Fail(error);
            return false;
        }
        if (!Send(MakeEntryFrame(entry))) {
            return false;
        }
        cursor_ = entry.cursor;
        hasToldEnd_ = false;
        // Opened anew, the journal gives back the memory that reading has taken.
        if (entries % kEntriesAnOpening == 0 && !(Open() && Seek())) {
            return false;
        }
    }
}

bool JournalTeller::Open() {
    const Patience patience;
    std::string error;
    if (!reader_.Open(question_.directory, question_.matches, error)) {
        Fail(error);
        return false;
    }
    return true;
}

bool JournalTeller::ReadCursor() {
    std::string line;
    for (char byte = 0; line.size() < kMaxCursorBytes;) {
        if (::read(peer_, &byte, 1) != 1) {
            return false;
        }
        if (byte == '\n') {
            cursor_ = line;
            return true;
        }
        line += byte;
    }
    return false;
}

bool JournalTeller::Tell(JournalSaying saying, std::string_view text) const {
    return Send(text.empty() ? MakeFrame(saying) : MakeFrame(saying, {text}));
}

bool JournalTeller::TellEnd() {
    return std::exchange(hasToldEnd_, true) || Tell(JournalSaying::kEnd);
}

bool JournalTeller::TellDamaged() {
    const std::size_t damaged = reader_.TakeDamaged();
    if (damaged == 0) {
        return true;
    }
    hasToldEnd_ = false;
    return Tell(JournalSaying::kDamaged, std::to_string(damaged));
}

bool JournalTeller::Send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t count = ::send(peer_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count < 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

void JournalTeller::Fail(const std::string& error) const {
    // Where nobody listens any more nothing is left to do.
    static_cast<void>(Tell(JournalSaying::kFailed, error));
}
