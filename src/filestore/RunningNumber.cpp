#include "filestore/RunningNumber.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <string>

#include "host/file/LumFile.h"

namespace {

constexpr std::size_t kMaxFileBytes = 64;

/// Reads the file; a missing one is 0.
bool ReadNumber(const LumString& path, uint64_t& number, LumString& error) {
    std::string content;
    if (!FileRead(path, kMaxFileBytes, content, error)) {
        number = 0;
        return errno == ENOENT;
    }
    uint64_t value = 0;
    const char* const end = content.data() + content.size();
    const auto [stop, failure] = std::from_chars(content.data(), end, value);
    if (failure != std::errc() || std::string(stop, end) != "\n") {
        error.Printf("%S: its content is not a number", path);
        return false;
    }
    number = value;
    return true;
}

std::string NumberText(uint64_t number) {
    return std::to_string(number) + "\n";
}

}  // namespace

bool RunningNumber::Open(const LumString& path, uint64_t lowest, LumString& error) {
    uint64_t recorded = 0;
    const bool understood = ReadNumber(path, recorded, error);
    const LumMutexLock lock(mutex_);
    path_ = path;
    next_ = std::max(lowest, understood ? recorded : 0);
    end_ = next_;
    return understood;
}

bool RunningNumber::Next(uint64_t& number, LumString& error) {
    const LumMutexLock lock(mutex_);
    if (!ReserveLocked(error)) {
        return false;
    }
    number = next_++;
    return true;
}

bool RunningNumber::Reserve(LumString& error) {
    const LumMutexLock lock(mutex_);
    return ReserveLocked(error);
}

bool RunningNumber::ReserveLocked(LumString& error) {
    if (next_ != end_) {
        return true;
    }
    if (end_ > UINT64_MAX - kBlock) {
        error = path_ + ": the numbers have come to their end";
        return false;
    }
    if (!FileReplace(path_, NumberText(end_ + kBlock), error)) {
        return false;
    }
    end_ += kBlock;
    return true;
}

void RunningNumber::Close() {
    const LumMutexLock lock(mutex_);
    if (next_ != end_) {
        LumString unused;
        // Where it cannot be written the numbers of this block are skipped, as after a crash.
        static_cast<void>(FileReplace(path_, NumberText(next_), unused));
        end_ = next_;
    }
}
