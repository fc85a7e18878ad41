#include "machine/journal/JournalReader.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <system_error>

#include <systemd/sd-journal.h>

namespace {

constexpr uint64_t kMicrosPerSecond = 1'000'000;

/// The moment in a cursor ("...;t=<hexadecimal microseconds>;..."); 0 where there is none.
std::time_t TimeOfCursor(std::string_view cursor) {
    constexpr std::string_view kKey = ";t=";
    const std::size_t at = cursor.find(kKey);
    uint64_t micros = 0;
    if (at != std::string_view::npos) {
        std::from_chars(cursor.data() + at + kKey.size(), cursor.data() + cursor.size(), micros, 16);
    }
    return static_cast<std::time_t>(micros / kMicrosPerSecond);
}

}  // namespace

std::string_view JournalEntry::Get(std::string_view name) const {
    const auto found = fields_.find(name);
    return found != fields_.end() ? std::string_view(found->second.value) : std::string_view();
}

bool JournalEntry::Is(std::string_view name, std::string_view value) const {
    const auto found = fields_.find(name);
    return found != fields_.end() && !found->second.isDoubled && found->second.value == value;
}

std::string_view JournalEntry::Identity() const {
    // The first two parts number the entry within one file.
    const std::size_t boot = cursor.find("b=");
    return boot == std::string::npos ? std::string_view(cursor) : std::string_view(cursor).substr(boot);
}

void JournalEntry::Add(std::string_view name, std::string_view value) {
    const auto [field, isNew] = fields_.try_emplace(std::string(name));
    if (isNew) {
        field->second.value = value.substr(0, JournalReader::kMaxValueBytes);
    } else {
        field->second.isDoubled = true;
    }
}

struct JournalReader::Handle {
    Handle() = default;
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { ::sd_journal_close(journal); }

    sd_journal* journal = nullptr;
};

JournalReader::JournalReader() = default;
JournalReader::~JournalReader() = default;

int JournalReader::Fail(int result, const char* what, LumString& error) const {
    error.Printf("the journal cannot be %s: %s", what, std::system_category().message(-result).c_str());
    return -1;
}

bool JournalReader::Open(const LumString& directory, const Matches& matches, LumString& error) {
    auto handle = std::make_unique<Handle>();
    const int opened = directory.IsEmpty()
                           ? ::sd_journal_open(&handle->journal, SD_JOURNAL_LOCAL_ONLY)
                           : ::sd_journal_open_directory(&handle->journal, directory.GetString(), 0);
    if (opened < 0) {
        handle->journal = nullptr;
        return Fail(opened, "opened", error) == 0;
    }
    uint64_t bytes = 0;
    if (::sd_journal_get_usage(handle->journal, &bytes) < 0 || bytes == 0) {
        error = "there is no journal";
        return false;
    }
    for (const std::vector<std::string>& group : matches) {
        ::sd_journal_add_disjunction(handle->journal);
        for (const std::string& match : group) {
            ::sd_journal_add_match(handle->journal, match.data(), match.size());
        }
    }
    ::sd_journal_set_data_threshold(handle->journal, kMaxValueBytes);
    descriptor_ = ::sd_journal_get_fd(handle->journal);
    handle_ = std::move(handle);
    isAtEntry_ = false;
    return true;
}

bool JournalReader::SeekAfter(const std::string& cursor, std::time_t oldest, bool& isThere,
                              LumString& error) {
    const bool isWanted = !cursor.empty() && TimeOfCursor(cursor) >= oldest;
    const int sought = isWanted
                           ? ::sd_journal_seek_cursor(handle_->journal, cursor.c_str())
                           : ::sd_journal_seek_realtime_usec(
                                 handle_->journal,
                                 static_cast<uint64_t>(std::max<std::time_t>(oldest, 0)) * kMicrosPerSecond);
    isThere = true;
    isAtEntry_ = false;
    if (sought < 0) {
        return Fail(sought, "searched", error) == 0;
    }
    if (isWanted) {
        const int stepped = ::sd_journal_next(handle_->journal);
        isThere = stepped > 0 && ::sd_journal_test_cursor(handle_->journal, cursor.c_str()) > 0;
        isAtEntry_ = stepped > 0 && !isThere;
    }
    return true;
}

int JournalReader::Next(const std::vector<std::string_view>& names, JournalEntry& entry, LumString& error) {
    const int stepped = isAtEntry_ ? 1 : ::sd_journal_next(handle_->journal);
    isAtEntry_ = false;
    if (stepped <= 0) {
        return stepped == 0 ? 0 : Fail(stepped, "read", error);
    }
    uint64_t micros = 0;
    char* cursor = nullptr;
    const int placed = ::sd_journal_get_cursor(handle_->journal, &cursor);
    if (placed < 0) {
        return Fail(placed, "read", error);
    }
    const std::unique_ptr<char, decltype(&std::free)> owned(cursor, &std::free);
    entry.Clear();
    entry.cursor = cursor;
    entry.time = ::sd_journal_get_realtime_usec(handle_->journal, &micros) < 0
                     ? 0
                     : static_cast<std::time_t>(micros / kMicrosPerSecond);
    const void* data = nullptr;
    std::size_t size = 0;
    ::sd_journal_restart_data(handle_->journal);
    while (::sd_journal_enumerate_available_data(handle_->journal, &data, &size) > 0) {
        const std::string_view field(static_cast<const char*>(data), size);
        const std::string_view name = field.substr(0, field.find('='));
        if (std::find(names.begin(), names.end(), name) != names.end()) {
            entry.Add(name, field.substr(std::min(field.size(), name.size() + 1)));
        }
    }
    return 1;
}

int JournalReader::GetDescriptor() const {
    return handle_ != nullptr ? descriptor_ : -1;
}

void JournalReader::ForgetNews() {
    // What has changed shows when the next entry is asked for.
    static_cast<void>(::sd_journal_process(handle_->journal));
}
