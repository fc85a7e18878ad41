#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <variant>

#include "fleet/collect/batch/Content.h"
#include "fleet/wire/BatchHeaders.h"

enum class Outcome : uint8_t {
    kOpen,       ///< nothing is decided
    kStored,     ///< its rows are in the database, from now on
    kDuplicate,  ///< they were there already
    kRejected,   ///< it was set apart with a reason
    kLater,      ///< it cannot be stored at the moment, though others can
};

/// One message of the stream on its way into the database.
struct Incoming {
    BatchInfo info;
    std::string subject;
    uint64_t sequence = 0;
    std::size_t bytes = 0;
    /// What it holds; nothing where it is rejected.
    std::variant<std::monostate, EventContent, AlertContent> content;
    std::string_view payload;  ///< the bytes as they came; they belong to the message
    Outcome outcome = Outcome::kOpen;
    std::string reason;  ///< of kRejected

    void Reject(std::string why) {
        outcome = Outcome::kRejected;
        reason = std::move(why);
        content = std::monostate();
    }
};

/// Reads a message: takes apart its subject, headers and content, and checks each against the others. What is
/// wrong makes it a rejected one. `payload` must outlive it. A message whose subject names no device belongs
/// to the device "".
[[nodiscard]] Incoming ReadMessage(std::string_view subject, const HeaderLookup& headers,
                                   std::string_view payload, std::size_t maxBytes);
