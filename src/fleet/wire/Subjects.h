#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// The subjects that devices and collectors speak on. All of them are made or taken apart here.
///
///   lum.v1.<bucket>.<device>.<label>   batches; what the stream keeps
///   lum.ask.<device>                   questions of a device: which of these batches are stored?
///   lum.to.<device>.receipt            answers to them, and receipts
///   lum.to.<device>.ack.<number>       the broker's acknowledgement of a batch
///
/// So an account that may publish `lum.v1.<bucket>.<device>.*` and `lum.ask.<device>`, and subscribe to
/// `lum.to.<device>.>`, is all that a device needs.

inline constexpr char kStreamName[] = "LUM";
inline constexpr char kBatchSubjects[] = "lum.v1.>";
inline constexpr char kAskSubjects[] = "lum.ask.*";
/// The pull consumer that all collectors share.
inline constexpr char kConsumerName[] = "lumcollect";

inline constexpr std::size_t kMaxSubjectLabelLength = 100;

/// The first byte of the SHA-256 digest of `device`, as two hexadecimal digits: spreads devices over
/// consumers.
[[nodiscard]] std::string BucketOf(std::string_view device);

/// `label` as one token of a subject: letters A to Z in either case, digits, '_' and '-' stay, every other
/// byte becomes '_'; cut at kMaxSubjectLabelLength, "file" where nothing is left.
[[nodiscard]] std::string SubjectLabel(std::string_view label);

[[nodiscard]] std::string BatchSubject(std::string_view device, std::string_view label);

struct BatchSubjectParts {
    std::string device;
    std::string label;  ///< as SubjectLabel makes it
};

/// The reverse of BatchSubject. False, and `parts` untouched, for any other subject, also where the bucket is
/// not the device's.
[[nodiscard]] bool ParseBatchSubject(std::string_view subject, BatchSubjectParts& parts);

[[nodiscard]] std::string AskSubject(std::string_view device);
/// The device that asks; empty for a subject that AskSubject does not make.
[[nodiscard]] std::string DeviceOfAsk(std::string_view subject);

/// Everything that is sent to the device.
[[nodiscard]] std::string DeviceInbox(std::string_view device);
[[nodiscard]] std::string ReceiptSubject(std::string_view device);
[[nodiscard]] std::string AckSubject(std::string_view device, uint64_t number);
/// False, and `number` untouched, for a subject that AckSubject does not make.
[[nodiscard]] bool ParseAckSubject(std::string_view subject, uint64_t& number);
