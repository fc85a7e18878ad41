#pragma once

#include <cerrno>
#include <utility>

#include <unistd.h>

/// Owns one open descriptor, or none (-1). Closing it leaves errno alone, so that the reason of a failure
/// outlives the clean-up.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.Release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            Close();
            descriptor_ = other.Release();
        }
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { Close(); }

    [[nodiscard]] int Get() const { return descriptor_; }
    [[nodiscard]] bool IsOpen() const { return descriptor_ >= 0; }
    /// Hands the descriptor over to the caller.
    [[nodiscard]] int Release() { return std::exchange(descriptor_, -1); }

    void Close() {
        if (descriptor_ >= 0) {
            const int reason = errno;
            ::close(descriptor_);
            descriptor_ = -1;
            errno = reason;
        }
    }

private:
    int descriptor_ = -1;
};
