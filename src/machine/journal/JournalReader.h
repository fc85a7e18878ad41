#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/text/LumString.h"

/// One entry of the journal. Names that begin with an underscore are the journal's own word on who wrote the
/// entry; every other field is what the writer says.
class JournalEntry {
public:
    std::time_t time = 0;  ///< when the journal took the entry in
    std::string cursor;

    /// The first value of a field, empty where there is none.
    [[nodiscard]] std::string_view Get(std::string_view name) const;
    /// True where the field is there once, with that value.
    [[nodiscard]] bool Is(std::string_view name, std::string_view value) const;
    /// What stays the same when the journal copies the entry into another of its files.
    [[nodiscard]] std::string_view Identity() const;

    void Clear() { fields_.clear(); }
    void Add(std::string_view name, std::string_view value);

private:
    struct Field {
        std::string value;
        bool isDoubled = false;
    };
    std::map<std::string, Field, std::less<>> fields_;
};

/// Reads those entries of the systemd journal that match. An object belongs to one thread at a time.
class JournalReader {
public:
    /// Longer values are cut.
    static constexpr std::size_t kMaxValueBytes = 4096;

    /// "FIELD=value" texts: those of one group that name different fields must all hold, of those that name
    /// the same field one; an entry matches where one of the groups does.
    using Matches = std::vector<std::vector<std::string>>;

    JournalReader();
    JournalReader(const JournalReader&) = delete;
    JournalReader& operator=(const JournalReader&) = delete;
    ~JournalReader();

    /// Opens the journal in `directory`, the system's own where that is empty. False, with the reason in
    /// `error`, where there is none.
    [[nodiscard]] bool Open(const LumString& directory, const Matches& matches, LumString& error);

    /// Goes on after the entry at `cursor`; `isThere` says whether that entry was found. Entries of before
    /// `oldest` are passed over.
    [[nodiscard]] bool SeekAfter(const std::string& cursor, std::time_t oldest, bool& isThere,
                                 LumString& error);

    /// Reads the fields `names` of the next entry. 1, 0 at the end of what is there, -1 with `error`.
    [[nodiscard]] int Next(const std::vector<std::string_view>& names, JournalEntry& entry, LumString& error);

    /// Readable once something has changed; ForgetNews makes it silent again.
    [[nodiscard]] int GetDescriptor() const;
    void ForgetNews();

private:
    struct Handle;
    [[nodiscard]] int Fail(int result, const char* what, LumString& error) const;

    std::unique_ptr<Handle> handle_;
    int descriptor_ = -1;     ///< belongs to the handle
    bool isAtEntry_ = false;  ///< the next entry has been stepped to already
};
