#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <string>

/// Reads a text line by line without keeping more than one line of bounded length in memory.
class LineReader {
public:
    /// The agent takes no larger request.
    static constexpr std::size_t kMaxLineBytes = std::size_t{16} << 20U;

    enum class Line {
        kText,     ///< `text` holds the line without its end
        kTooLong,  ///< a line over the limit, which was passed over
        kEnd
    };

    explicit LineReader(std::istream& in, std::size_t maxLineBytes = kMaxLineBytes)
        : in_(in), maxLineBytes_(maxLineBytes) {}

    [[nodiscard]] Line Next(std::string& text);

    /// Number of the line that Next read last, from 1.
    [[nodiscard]] uint64_t GetNumber() const { return number_; }
    /// Bytes read so far.
    [[nodiscard]] uint64_t GetBytes() const { return bytes_; }

private:
    std::istream& in_;
    const std::size_t maxLineBytes_;
    uint64_t number_ = 0;
    uint64_t bytes_ = 0;
};
