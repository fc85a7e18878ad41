#include "host/log/internal/LineFormat.h"

#include <cstdio>
#include <cstdlib>

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

}  // namespace

std::unique_ptr<spdlog::formatter> MakeLineFormatter() {
    auto formatter = std::make_unique<spdlog::pattern_formatter>();
    formatter->add_flag<ZoneFlag>('*').set_pattern("%Y-%m-%dT%H:%M:%S.%e%* %v");
    return formatter;
}
