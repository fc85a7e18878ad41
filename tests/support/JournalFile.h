#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// A journal for a test, made by the system's own tool from the text form of its entries.
class JournalFile {
public:
    using Fields = std::vector<std::pair<std::string, std::string>>;

    /// Adds an entry of the moment `seconds` (since 1970) with these fields; values may hold any bytes.
    void Add(int64_t seconds, const Fields& fields);
    /// Writes all entries so far into the journal file `path`; false where the tool is missing or fails.
    [[nodiscard]] bool Write(const std::string& path) const;

private:
    std::string text_;
    uint64_t count_ = 0;
};
