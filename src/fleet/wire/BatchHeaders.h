#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fleet/wire/BatchKey.h"

/// What travels with a batch besides its content, as headers of its message. The broker's own header for the
/// identity of a message holds the key, so that the broker itself drops what comes twice within minutes.

inline constexpr char kHeaderKey[] = "Nats-Msg-Id";
inline constexpr char kHeaderName[] = "Lum-Name";
inline constexpr char kHeaderLabel[] = "Lum-Label";
inline constexpr char kHeaderReceivedAt[] = "Lum-Received-At";
inline constexpr char kHeaderFormat[] = "Lum-Format";

/// The version of all that this folder describes.
inline constexpr char kWireFormat[] = "1";

/// One entry of an outbox, without its content.
struct BatchInfo {
    BatchKey key;
    std::string name;        ///< of the file in the outbox
    std::string label;       ///< what the content is
    std::string receivedAt;  ///< when the outbox took it, UTC in ISO 8601
};

using Headers = std::vector<std::pair<std::string, std::string>>;

/// `text` as the value of a header: control characters become '_', cut at 255 bytes.
[[nodiscard]] std::string HeaderValue(std::string_view text);

[[nodiscard]] Headers MakeHeaders(const BatchInfo& batch);

/// Gives a header's value, empty where there is none.
using HeaderLookup = std::function<std::string_view(const char* name)>;

/// The reverse of MakeHeaders. False, with what is wrong in `error` and `batch` untouched, where the format
/// is another one or the key is not a valid one.
[[nodiscard]] bool ReadHeaders(const HeaderLookup& headers, BatchInfo& batch, std::string& error);

/// The running number in a name "<UTC time>-<number>-<label>.cbor" of the outbox; 0 for any other name and
/// for a number above 10^15.
[[nodiscard]] int64_t RunningNumberOf(std::string_view name);
