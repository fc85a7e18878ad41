#pragma once

#include <cstdint>
#include <mutex>
#include <string_view>

#include <spdlog/sinks/base_sink.h>

/// Writes lines to standard error without ever waiting for long: where nobody reads it, lines are left out,
/// and the next one that can be written says how many.
class StandardError : public spdlog::sinks::base_sink<std::mutex> {
public:
    StandardError();

protected:
    void sink_it_(const spdlog::details::log_msg& message) override;
    void flush_() override {}

private:
    [[nodiscard]] bool Send(std::string_view text);

    uint64_t leftOut_ = 0;
    bool isTorn_ = false;  // the last line that was begun is not whole
};
