#include "host/log/internal/LineFormat.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include <spdlog/pattern_formatter.h>

namespace {

/// The zone's offset at the very time of the line; spdlog's own %z may be seconds behind a change of it.
class ZoneFlag : public spdlog::custom_flag_formatter {
public:
    void format(const spdlog::details::log_msg& /*message*/, const std::tm& time,
                spdlog::memory_buf_t& out) override {
        const long minutes = time.tm_gmtoff / 60;
        char text[32];
        const int length = std::snprintf(text, sizeof text, "%c%02ld:%02ld", minutes < 0 ? '-' : '+',
                                         std::labs(minutes) / 60, std::labs(minutes) % 60);
        out.append(text, text + length);
    }

    [[nodiscard]] std::unique_ptr<custom_flag_formatter> clone() const override {
        return std::make_unique<ZoneFlag>();
    }
};

/// The priorities of sd-daemon(3), by the level that spdlog has for ours.
class PriorityFlag : public spdlog::custom_flag_formatter {
public:
    void format(const spdlog::details::log_msg& message, const std::tm& /*time*/,
                spdlog::memory_buf_t& out) override {
        const std::string_view text = message.level == spdlog::level::err    ? "<3>"
                                      : message.level == spdlog::level::warn ? "<4>"
                                      : message.level == spdlog::level::info ? "<6>"
                                                                             : "<7>";
        out.append(text.data(), text.data() + text.size());
    }

    [[nodiscard]] std::unique_ptr<custom_flag_formatter> clone() const override {
        return std::make_unique<PriorityFlag>();
    }
};

}  // namespace

std::unique_ptr<spdlog::formatter> MakeLineFormatter(bool withPriority) {
    auto formatter = std::make_unique<spdlog::pattern_formatter>();
    const std::string pattern = "%Y-%m-%dT%H:%M:%S.%e%* %v";
    formatter->add_flag<ZoneFlag>('*').add_flag<PriorityFlag>('$').set_pattern(withPriority ? "%$" + pattern
                                                                                            : pattern);
    return formatter;
}
