#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Builds Prometheus text, one metric after the other.
class MetricsText {
public:
    /// `name` without the prefix that all metrics of a program have.
    explicit MetricsText(std::string_view prefix) : prefix_(prefix) {}

    template <class Number>
    void AddCounter(std::string_view name, std::string_view help, Number value) {
        Add("counter", name, help, static_cast<double>(value));
    }
    template <class Number>
    void AddGauge(std::string_view name, std::string_view help, Number value) {
        Add("gauge", name, help, static_cast<double>(value));
    }

    [[nodiscard]] const std::string& GetText() const { return text_; }

private:
    void Add(std::string_view kind, std::string_view name, std::string_view help, double value);

    const std::string prefix_;
    std::string text_;
};

/// Resident memory of this process in bytes; 0 where the system does not say.
[[nodiscard]] uint64_t ResidentBytes();
