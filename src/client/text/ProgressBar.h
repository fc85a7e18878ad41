#pragma once

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>

/// A bar on one line of a terminal, drawn anew at most ten times a second. Draws nothing where it is not
/// enabled.
class ProgressBar {
public:
    ProgressBar(std::ostream& out, bool enabled) : out_(out), enabled_(enabled) {}
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    ~ProgressBar() { Erase(); }

    /// `total` is the amount of work, 0 where it is not known.
    void Update(uint64_t done, uint64_t total, uint64_t events);
    /// Takes the bar off the terminal, so that other lines can be written; the next Update draws it again.
    void Erase();

    /// The bar's text: "[#####.....]  50 %  1234 events", or the count alone without a total.
    [[nodiscard]] static std::string Text(uint64_t done, uint64_t total, uint64_t events);

private:
    std::ostream& out_;
    const bool enabled_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point next_;
};
