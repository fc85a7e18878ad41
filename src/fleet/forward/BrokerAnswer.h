#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// What the broker says to a batch.
struct BrokerAnswer {
    std::optional<uint64_t> sequence;  ///< the stream holds it under this number; nothing: it was refused
    std::string reason;                ///< of the refusal
    int64_t code = 0;                  ///< the broker's own number of that reason; 0 where it gives none
};

/// Reads it; what makes no sense is a refusal that does not say why.
[[nodiscard]] BrokerAnswer ReadBrokerAnswer(std::string_view data);
