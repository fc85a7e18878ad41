#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// What a collector tells a device of its batches, and what a device asks. Both are lines of text after a
/// first line that names the kind and its version:
///
///   lum-receipt 1            lum-ask 1
///   held <digest>            <digest> <sequence>
///   rejected <digest> <reason>
///   waiting <digest>
///   missing <digest>

enum class BatchFate : uint8_t {
    kHeld,      ///< the database holds it
    kRejected,  ///< it was refused for good, and the database says why
    kWaiting,   ///< the stream has it and nobody has stored it yet
    kMissing,   ///< neither has it: it is to be sent again
};

struct ReceiptLine {
    BatchFate fate = BatchFate::kHeld;
    std::string digest;
    std::string reason;  ///< of kRejected

    [[nodiscard]] bool operator==(const ReceiptLine& other) const = default;
};

struct AskLine {
    std::string digest;
    /// The number that the stream gave the batch, as its acknowledgement said; 0 where it is not known.
    uint64_t sequence = 0;

    [[nodiscard]] bool operator==(const AskLine& other) const = default;
};

/// At most this many lines go into one message, and are taken from one.
inline constexpr std::size_t kMaxReceiptLines = 1000;

[[nodiscard]] std::string ReceiptText(const std::vector<ReceiptLine>& lines);
/// False, and `lines` untouched, for a text that is not a receipt, up to its last line.
[[nodiscard]] bool ParseReceipt(std::string_view text, std::vector<ReceiptLine>& lines);

[[nodiscard]] std::string AskText(const std::vector<AskLine>& lines);
/// False, and `lines` untouched, for a text that is not a question, up to its last line.
[[nodiscard]] bool ParseAsk(std::string_view text, std::vector<AskLine>& lines);
