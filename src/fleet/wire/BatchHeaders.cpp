#include "fleet/wire/BatchHeaders.h"

#include <charconv>

namespace {

constexpr std::size_t kMaxHeaderLength = 255;
/// 20261121T011025Z
constexpr std::size_t kTimeLength = 16;
constexpr int64_t kLargestNumber = 1'000'000'000'000'000;

}  // namespace

std::string HeaderValue(std::string_view text) {
    std::string value(text.substr(0, kMaxHeaderLength));
    for (char& letter : value) {
        const auto byte = static_cast<unsigned char>(letter);
        letter = byte < 0x20 || byte == 0x7F ? '_' : letter;
    }
    return value;
}

Headers MakeHeaders(const BatchInfo& batch) {
    constexpr std::size_t count = 5;
    Headers headers;
    headers.reserve(count);
    headers.emplace_back(kHeaderKey, KeyText(batch.key));
    headers.emplace_back(kHeaderName, HeaderValue(batch.name));
    headers.emplace_back(kHeaderLabel, HeaderValue(batch.label));
    headers.emplace_back(kHeaderReceivedAt, HeaderValue(batch.receivedAt));
    headers.emplace_back(kHeaderFormat, kWireFormat);
    return headers;
}

bool ReadHeaders(const HeaderLookup& headers, BatchInfo& batch, std::string& error) {
    const std::string_view format = headers(kHeaderFormat);
    if (format != kWireFormat) {
        error = format.empty() ? "it does not say its format" : "its format is not one that is known";
        return false;
    }
    BatchKey key;
    if (!ParseKey(headers(kHeaderKey), key)) {
        error = "its key is not a device and a digest";
        return false;
    }
    batch.key = std::move(key);
    batch.name = headers(kHeaderName);
    batch.label = headers(kHeaderLabel);
    batch.receivedAt = headers(kHeaderReceivedAt);
    return true;
}

int64_t RunningNumberOf(std::string_view name) {
    if (name.size() <= kTimeLength || name[kTimeLength - 1] != 'Z' || name[kTimeLength] != '-') {
        return 0;
    }
    int64_t number = 0;
    const char* const end = name.data() + name.size();
    const auto [stop, failure] = std::from_chars(name.data() + kTimeLength + 1, end, number);
    return failure == std::errc() && stop != end && *stop == '-' && number > 0 && number <= kLargestNumber
               ? number
               : 0;
}
