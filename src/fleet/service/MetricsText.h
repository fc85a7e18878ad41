#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Builds Prometheus text, one metric after the other.
class MetricsText {
public:
    enum class Kind : uint8_t { kCounter, kGauge };

    /// `name` without the prefix that all metrics of a program have.
    explicit MetricsText(std::string_view prefix) : prefix_(prefix) {}

    void Add(Kind kind, std::string_view name, std::string_view help, double value);

    [[nodiscard]] const std::string& GetText() const { return text_; }

private:
    const std::string prefix_;
    std::string text_;
};

/// Resident memory of this process in bytes; 0 where the system does not say.
[[nodiscard]] uint64_t ResidentBytes();
