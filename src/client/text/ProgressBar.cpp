#include "client/text/ProgressBar.h"

#include <algorithm>
#include <cstddef>
#include <ostream>

void ProgressBar::Update(uint64_t done, uint64_t total, uint64_t events) {
    constexpr std::chrono::milliseconds kInterval{100};
    if (!enabled_) {
        return;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) {
        return;
    }
    next_ = now + kInterval;
    drawn_ = true;
    out_ << '\r' << Text(done, total, events) << std::flush;
}

void ProgressBar::Erase() {
    constexpr std::size_t kMaxTextLength = 70;
    if (drawn_) {
        out_ << '\r' << std::string(kMaxTextLength, ' ') << '\r' << std::flush;
        drawn_ = false;
    }
}

std::string ProgressBar::Text(uint64_t done, uint64_t total, uint64_t events) {
    constexpr uint64_t kBarLength = 30;
    std::string count = std::to_string(events) + " events";
    if (total == 0) {
        return count;
    }
    const uint64_t shown = std::min(done, total);
    const auto filled = static_cast<std::size_t>(shown * kBarLength / total);
    std::string percent = std::to_string(shown * 100 / total);
    percent.insert(0, 3 - percent.size(), ' ');
    return "[" + std::string(filled, '#') + std::string(kBarLength - filled, '.') + "] " + percent + " %  " +
           count;
}
