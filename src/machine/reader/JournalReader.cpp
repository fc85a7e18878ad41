#include "machine/reader/JournalReader.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <system_error>
#include <utility>

#include <poll.h>
#include <systemd/sd-journal.h>

namespace {

constexpr uint64_t kMicrosPerSecond = 1'000'000;
constexpr uint64_t kMicrosPerMilli = 1000;
constexpr uint64_t kNanosPerMicro = 1000;
/// Where the system does not tell of changes the journal is looked at this often.
constexpr uint64_t kLookMicros = 300 * kMicrosPerSecond;
constexpr int kHexadecimal = 16;
/// How far the entry is looked for that tells how many are missing.
constexpr int kMostSteps = 1000;

/// The value of a part of a cursor ("s=...;i=...;b=...;m=...;t=...;x=..."); empty where there is none.
std::string_view CursorPart(std::string_view cursor, char name) {
    const std::string key{name, '='};
    for (std::size_t from = 0; from < cursor.size();) {
        const std::size_t end = std::min(cursor.find(';', from), cursor.size());
        const std::string_view part = cursor.substr(from, end - from);
        if (part.starts_with(key)) {
            return part.substr(key.size());
        }
        from = end + 1;
    }
    return {};
}

std::optional<uint64_t> CursorNumber(std::string_view cursor, char name) {
    const std::string_view text = CursorPart(cursor, name);
    uint64_t number = 0;
    const auto [stop, failure] =
        std::from_chars(text.data(), text.data() + text.size(), number, kHexadecimal);
    return failure == std::errc() && stop == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::string Complaint(int result, const char* what) {
    return std::string("the journal cannot be ") + what + ": " + std::system_category().message(-result);
}

int OpenJournal(const std::string& directory, sd_journal** journal) {
    return directory.empty() ? ::sd_journal_open(journal, SD_JOURNAL_LOCAL_ONLY)
                             : ::sd_journal_open_directory(journal, directory.c_str(), 0);
}

/// The cursor of the entry that the journal stands at; empty where it cannot be told.
std::string CursorHere(sd_journal* journal) {
    char* cursor = nullptr;
    if (::sd_journal_get_cursor(journal, &cursor) < 0) {
        return {};
    }
    const std::unique_ptr<char, decltype(&std::free)> owned(cursor, &std::free);
    return cursor;
}

uint64_t MonotonicMicros() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * kMicrosPerSecond +
           static_cast<uint64_t>(now.tv_nsec) / kNanosPerMicro;
}

}  // namespace

void JournalReader::Close::operator()(sd_journal* journal) const {
    ::sd_journal_close(journal);
}

bool JournalReader::Open(const std::string& directory, const Matches& matches, std::string& error) {
    journal_.reset();
    isAtEntry_ = false;
    sd_journal* opened = nullptr;
    if (const int result = OpenJournal(directory, &opened); result < 0) {
        error = Complaint(result, "opened");
        return false;
    }
    journal_.reset(opened);
    if (IsGone()) {
        error = "there is no journal";
        return false;
    }
    for (const std::vector<std::string>& group : matches) {
        ::sd_journal_add_disjunction(opened);
        for (const std::string& match : group) {
            ::sd_journal_add_match(opened, match.data(), match.size());
        }
    }
    ::sd_journal_set_data_threshold(opened, JournalEntry::kMaxValueBytes);
    // From now on changes are noticed.
    static_cast<void>(::sd_journal_get_fd(opened));
    return true;
}

bool JournalReader::IsGone() const {
    uint64_t bytes = 0;
    return ::sd_journal_get_usage(journal_.get(), &bytes) < 0 || bytes == 0;
}

JournalReader::Place JournalReader::SeekAfter(const std::string& cursor, std::time_t oldest) {
    sd_journal* const journal = journal_.get();
    const std::optional<uint64_t> micros = CursorNumber(cursor, 't');
    const uint64_t oldestMicros = static_cast<uint64_t>(std::max<std::time_t>(oldest, 0)) * kMicrosPerSecond;
    Place place = cursor.empty() || micros.has_value() ? Place::kFound : Place::kNoCursor;
    isAtEntry_ = false;
    if (micros.has_value() && *micros >= oldestMicros) {
        if (::sd_journal_seek_cursor(journal, cursor.c_str()) >= 0) {
            const int stepped = ::sd_journal_next(journal);
            const bool isThere = stepped > 0 && ::sd_journal_test_cursor(journal, cursor.c_str()) > 0;
            isAtEntry_ = stepped > 0 && !isThere;
            return isThere ? Place::kFound : Place::kGone;
        }
        place = Place::kNoCursor;
    }
    // It only notes the moment: what fails, fails when the next entry is asked for.
    static_cast<void>(::sd_journal_seek_realtime_usec(journal, oldestMicros));
    return place;
}

int JournalReader::Next(const std::vector<std::string_view>& names, JournalEntry& entry, std::string& error) {
    while (true) {
        const int stepped = std::exchange(isAtEntry_, false) ? 1 : ::sd_journal_next(journal_.get());
        if (stepped < 0) {
            error = Complaint(stepped, "read");
            return -1;
        }
        if (stepped == 0) {
            return 0;
        }
        if (ReadEntry(names, entry)) {
            return 1;
        }
        ++damaged_;
    }
}

bool JournalReader::ReadEntry(const std::vector<std::string_view>& names, JournalEntry& entry) const {
    sd_journal* const journal = journal_.get();
    uint64_t micros = 0;
    entry.Clear();
    entry.cursor = CursorHere(journal);
    if (entry.cursor.empty() || ::sd_journal_get_realtime_usec(journal, &micros) < 0) {
        return false;
    }
    entry.time = static_cast<std::time_t>(micros / kMicrosPerSecond);
    const void* data = nullptr;
    std::size_t size = 0;
    int found = 0;
    ::sd_journal_restart_data(journal);
    while ((found = ::sd_journal_enumerate_available_data(journal, &data, &size)) > 0) {
        const std::string_view field(static_cast<const char*>(data), size);
        const std::string_view name = field.substr(0, field.find('='));
        if (std::find(names.begin(), names.end(), name) != names.end()) {
            entry.Add(name, field.substr(std::min(field.size(), name.size() + 1)));
        }
    }
    return found == 0;
}

std::size_t JournalReader::TakeDamaged() {
    return std::exchange(damaged_, 0);
}

bool JournalReader::Wait(int peer) {
    sd_journal* const journal = journal_.get();
    pollfd waits[] = {{::sd_journal_get_fd(journal), static_cast<short>(::sd_journal_get_events(journal)), 0},
                      {peer, POLLRDHUP, 0}};
    uint64_t until = UINT64_MAX;
    static_cast<void>(::sd_journal_get_timeout(journal, &until));
    const uint64_t now = MonotonicMicros();
    const uint64_t micros = std::min(until > now ? until - now : 0, kLookMicros);
    static_cast<void>(
        ::poll(waits, std::size(waits), static_cast<int>((micros + kMicrosPerMilli - 1) / kMicrosPerMilli)));
    if (waits[1].revents != 0) {
        return false;
    }
    // What has changed shows when the next entry is asked for.
    static_cast<void>(::sd_journal_process(journal));
    return true;
}

std::optional<uint64_t> CountRemoved(const std::string& directory, const std::string& cursor) {
    const std::optional<uint64_t> last = CursorNumber(cursor, 'i');
    sd_journal* journal = nullptr;
    const int opened = OpenJournal(directory, &journal);
    const std::unique_ptr<sd_journal, decltype(&::sd_journal_close)> owned(journal, &::sd_journal_close);
    if (opened < 0 || !last.has_value() || ::sd_journal_seek_cursor(journal, cursor.c_str()) < 0) {
        return std::nullopt;
    }
    for (int steps = 0; steps < kMostSteps; ++steps) {
        if (::sd_journal_next(journal) <= 0) {
            break;
        }
        const std::string here = CursorHere(journal);
        // Entries of one writer are numbered one after another.
        if (CursorPart(here, 's') == CursorPart(cursor, 's')) {
            const uint64_t number = CursorNumber(here, 'i').value_or(0);
            return number > *last ? number - *last - 1 : 0;
        }
    }
    return std::nullopt;
}
