#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/text/LumString.h"

/// Reads one file of a log, plain or compressed with gzip, line by line. Offsets count the bytes of the
/// content as it is before compression, so a line keeps its offset when its file is compressed. An object
/// belongs to one thread at a time.
class LogFile {
public:
    /// A line that is longer gives its first bytes; the rest is read and dropped, so that a log without an
    /// end of line takes no more memory than this.
    static constexpr std::size_t kMaxLineBytes = 4096;

    /// False, with the reason in `error`, where `path` is not a regular file that can be read.
    [[nodiscard]] bool Open(const LumString& path, LumString& error);

    /// The next whole line without its end; false at the end of what is there. A line whose end is not there
    /// yet is not given, and the next call looks whether it has come.
    [[nodiscard]] bool NextLine(std::string& line);
    /// The offset after the last line that was given.
    [[nodiscard]] uint64_t GetOffset() const { return offset_; }
    /// Gives what stands after the last whole line, of a file that nobody writes to any more.
    [[nodiscard]] bool TakeTornLine(std::string& line);

    /// Goes on after the first `offset` bytes; false where there are not as many.
    [[nodiscard]] bool Seek(uint64_t offset);
    /// The MD5 digest of up to `length` bytes that stand before `offset`, or, with `offset` equal to
    /// `length`, of the first ones. Empty where there are not as many. Moves the place of reading.
    [[nodiscard]] std::string DigestBefore(uint64_t offset, std::size_t length);

    /// True where `path` still leads to the file that is open here.
    [[nodiscard]] bool IsAt(const LumString& path) const;
    /// The size of the file as it lies on the disk.
    [[nodiscard]] uint64_t GetFileSize() const;
    /// True where the content is compressed.
    [[nodiscard]] bool IsCompressed() const;

private:
    struct Close {
        void operator()(struct gzFile_s* stream) const;
    };

    [[nodiscard]] bool Fill();
    void Forget(uint64_t offset);

    std::unique_ptr<struct gzFile_s, Close> stream_;
    int descriptor_ = -1;  ///< belongs to the stream

    static constexpr std::size_t kChunkBytes = std::size_t{16} << 10U;
    std::array<char, kChunkBytes> chunk_{};
    std::size_t chunkUsed_ = 0;
    std::size_t chunkSize_ = 0;
    std::string partial_;        ///< the beginning of the line whose end has not come
    uint64_t partialBytes_ = 0;  ///< how many bytes of it have been read
    uint64_t offset_ = 0;
};
