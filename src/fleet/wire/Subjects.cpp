#include "fleet/wire/Subjects.h"

#include <charconv>

#include "fleet/wire/BatchKey.h"
#include "host/text/LumSha256.h"

namespace {

constexpr std::string_view kBatchPrefix = "lum.v1.";
constexpr std::string_view kAskPrefix = "lum.ask.";
constexpr std::string_view kInboxPrefix = "lum.to.";
constexpr std::string_view kAckPart = ".ack.";
constexpr std::size_t kBucketLength = 2;

}  // namespace

std::string BucketOf(std::string_view device) {
    return Sha256Hex(device).substr(0, kBucketLength);
}

std::string SubjectLabel(std::string_view label) {
    std::string token(label.substr(0, kMaxSubjectLabelLength));
    for (char& letter : token) {
        letter = IsDeviceName({&letter, 1}) ? letter : '_';
    }
    return token.empty() ? "file" : token;
}

std::string BatchSubject(std::string_view device, std::string_view label) {
    return std::string(kBatchPrefix) + BucketOf(device) + "." + std::string(device) + "." +
           SubjectLabel(label);
}

bool ParseBatchSubject(std::string_view subject, BatchSubjectParts& parts) {
    if (!subject.starts_with(kBatchPrefix)) {
        return false;
    }
    const std::string_view rest = subject.substr(kBatchPrefix.size());
    const std::size_t first = rest.find('.');
    const std::size_t second = first == std::string_view::npos ? first : rest.find('.', first + 1);
    if (second == std::string_view::npos) {
        return false;
    }
    const std::string_view device = rest.substr(first + 1, second - first - 1);
    const std::string_view label = rest.substr(second + 1);
    if (!IsDeviceName(device) || SubjectLabel(label) != label || BucketOf(device) != rest.substr(0, first)) {
        return false;
    }
    parts.device = device;
    parts.label = label;
    return true;
}

std::string AskSubject(std::string_view device) {
    return std::string(kAskPrefix) + std::string(device);
}

std::string DeviceOfAsk(std::string_view subject) {
    if (!subject.starts_with(kAskPrefix) || !IsDeviceName(subject.substr(kAskPrefix.size()))) {
        return {};
    }
    return std::string(subject.substr(kAskPrefix.size()));
}

std::string DeviceInbox(std::string_view device) {
    return std::string(kInboxPrefix) + std::string(device) + ".>";
}

std::string ReceiptSubject(std::string_view device) {
    return std::string(kInboxPrefix) + std::string(device) + ".receipt";
}

std::string AckSubject(std::string_view device, uint64_t number) {
    return std::string(kInboxPrefix) + std::string(device) + std::string(kAckPart) + std::to_string(number);
}

bool ParseAckSubject(std::string_view subject, uint64_t& number) {
    const std::size_t part = subject.rfind(kAckPart);
    if (!subject.starts_with(kInboxPrefix) || part == std::string_view::npos) {
        return false;
    }
    const char* const end = subject.data() + subject.size();
    uint64_t value = 0;
    const auto [stop, failure] = std::from_chars(subject.data() + part + kAckPart.size(), end, value);
    if (failure != std::errc() || stop != end) {
        return false;
    }
    number = value;
    return true;
}
