#pragma once

#include <cstddef>
#include <mutex>
#include <string>

#include <spdlog/sinks/base_sink.h>

#include "host/file/FileDescriptor.h"

/// Appends lines to a file and sets it aside under numbered names when it is full. A file that somebody has
/// removed, with its directory or without, is made again for the next line.
class LogFile : public spdlog::sinks::base_sink<std::mutex> {
public:
    LogFile(std::string path, std::size_t maxBytes, std::size_t maxFiles);

    /// False, with errno, where the file cannot be opened, is not a regular file, or has further names.
    [[nodiscard]] bool Open();

protected:
    void sink_it_(const spdlog::details::log_msg& message) override;
    void flush_() override {}

private:
    [[nodiscard]] bool Reopen();
    [[nodiscard]] bool MakeDirectory() const;
    [[nodiscard]] bool IsRemoved() const;
    void Rotate();

    const std::string path_;
    const std::size_t maxBytes_;
    const std::size_t maxFiles_;
    FileDescriptor file_;
    std::size_t size_ = 0;
};
