#include "machine/packages/LogFile.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include "host/file/FileDescriptor.h"
#include "host/text/LumMd5.h"
#include "host/text/LumSystemError.h"

void LogFile::Close::operator()(gzFile_s* stream) const {
    ::gzclose_r(stream);
}

bool LogFile::Open(const LumString& path, LumString& error) {
    stream_.reset();
    Forget(0);
    // A pipe is not waited for.
    FileDescriptor descriptor(::open(path.GetString(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (!descriptor.IsOpen() || ::fstat(descriptor.Get(), &status) != 0) {
        error.Printf("%S: %S", path, LumSystemErrorText());
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        error.Printf("%S: it is not a regular file", path);
        return false;
    }
    stream_.reset(::gzdopen(descriptor.Get(), "rb"));
    if (stream_ == nullptr) {
        error.Printf("%S: there is no memory to read it", path);
        return false;
    }
    descriptor_ = descriptor.Release();
    return true;
}

bool LogFile::NextLine(std::string& line) {
    while (chunkUsed_ < chunkSize_ || Fill()) {
        const std::string_view rest(chunk_.data() + chunkUsed_, chunkSize_ - chunkUsed_);
        const std::size_t end = rest.find('\n');
        const std::size_t length = std::min(end, rest.size());
        partial_.append(rest.substr(0, std::min(length, kMaxLineBytes - partial_.size())));
        partialBytes_ += length;
        chunkUsed_ += length;
        if (end != std::string_view::npos) {
            ++chunkUsed_;
            offset_ += partialBytes_ + 1;
            partialBytes_ = 0;
            line.swap(partial_);
            partial_.clear();
            return true;
        }
    }
    return false;
}

bool LogFile::TakeTornLine(std::string& line) {
    if (partial_.empty()) {
        return false;
    }
    offset_ += std::exchange(partialBytes_, 0);
    line = std::exchange(partial_, std::string());
    return true;
}

bool LogFile::Fill() {
    // The end that was met before may have moved since.
    ::gzclearerr(stream_.get());
    const int count = ::gzread(stream_.get(), chunk_.data(), static_cast<unsigned>(chunk_.size()));
    chunkUsed_ = 0;
    // Compressed content that is damaged ends where the damage begins.
    chunkSize_ = count > 0 ? static_cast<std::size_t>(count) : 0;
    return chunkSize_ > 0;
}

void LogFile::Forget(uint64_t offset) {
    chunkUsed_ = 0;
    chunkSize_ = 0;
    partial_.clear();
    partialBytes_ = 0;
    offset_ = offset;
}

bool LogFile::Seek(uint64_t offset) {
    ::gzclearerr(stream_.get());
    Forget(offset);
    return (IsCompressed() || offset <= GetFileSize()) &&
           ::gzseek(stream_.get(), static_cast<z_off_t>(offset), SEEK_SET) == static_cast<z_off_t>(offset);
}

std::string LogFile::DigestBefore(uint64_t offset, std::size_t length) {
    std::string bytes(std::min<uint64_t>(offset, length), '\0');
    if (!Seek(offset - bytes.size())) {
        return {};
    }
    const int count = ::gzread(stream_.get(), bytes.data(), static_cast<unsigned>(bytes.size()));
    if (count != static_cast<int>(bytes.size())) {
        return {};
    }
    return MD5HashHex(LumString(std::move(bytes))).GetString();
}

bool LogFile::IsAt(const LumString& path) const {
    struct stat named = {};
    struct stat opened = {};
    return stream_ != nullptr && ::stat(path.GetString(), &named) == 0 &&
           ::fstat(descriptor_, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

uint64_t LogFile::GetFileSize() const {
    struct stat status = {};
    return ::fstat(descriptor_, &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

bool LogFile::IsCompressed() const {
    return ::gzdirect(stream_.get()) == 0;
}
