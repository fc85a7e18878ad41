#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What a process did to the files below a directory, call by call. libdiskrecord.so (DiskRecordShim.cpp)
/// stands between a program that is linked with it and the C library, and writes down each call that
/// succeeded. What goes through mapped memory is not seen, nor what the C library's own streams do.
struct DiskCall {
    enum class Kind : uint8_t {
        kWrite,     ///< `bytes` at `offset` of `file`
        kTruncate,  ///< `file` has `offset` bytes
        kSync,      ///< `file`, which may be a directory, with all calls before number `offset`
        kMake,      ///< `file` is new, as `toName` in the directory `to`
        kMakeDirectory,
        kRename,  ///< `file` goes from `fromName` in `from` to `toName` in `to`
        kLink,    ///< `file` is also `toName` in `to`
        kRemove,  ///< `fromName` in `from` is gone
        kMark,    ///< what the program says of itself: `bytes`
    };

    Kind kind = Kind::kMark;
    uint64_t file = 0;  ///< files and directories by their inodes, which are used again once they are free
    uint64_t from = 0;
    uint64_t to = 0;
    uint64_t offset = 0;
    std::string fromName{};
    std::string toName{};
    std::string bytes{};
};

/// Begins to write down what happens below `directory`, an absolute path without links. Each sync takes
/// `syncMicroseconds` longer, so that there is time for something to happen meanwhile.
extern "C" void DiskRecordBegin(const char* directory, uint32_t syncMicroseconds);
/// Adds a mark. May be called from any thread.
extern "C" void DiskRecordMark(const char* text);
/// Ends it and hands out all calls in their order. No other thread may be at work on the files.
extern "C" void DiskRecordEnd(std::vector<DiskCall>* calls);
